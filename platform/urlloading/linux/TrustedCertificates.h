#pragma once

#include "platform/foundation/Error.h"

#include <openssl/types.h>

namespace platform {

/// Makes `context` trust the machine's certificate authorities and those that the environment variables
/// SSL_CERT_FILE (one PEM file) and SSL_CERT_DIR (folders in OpenSSL's layout, separated by ":") name. The
/// machine's authorities are in the first folder and the first bundle that exist of the places that
/// distributions use. Fails with secureConnectionFailed if SSL_CERT_FILE names no readable certificates or if
/// nothing is trusted. `host` is for the error's description.
Outcome trustCertificateAuthorities(SSL_CTX* context, const std::string& host);

} // namespace platform
