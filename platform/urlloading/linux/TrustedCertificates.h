#pragma once

#include "platform/foundation/Error.h"

#include <openssl/types.h>

/// The certificate authorities that TLS connections trust. Only the transport includes this.
namespace platform {

/// Makes `context` trust the machine's certificate authorities and, additionally, those that the environment
/// variables SSL_CERT_FILE (one PEM file) and SSL_CERT_DIR (folders in OpenSSL's layout, separated by ":")
/// name. The machine's are those in the first existing folder and the first existing bundle of the places
/// that distributions use. Folders that do not exist are ignored. Fails with secureConnectionFailed when
/// SSL_CERT_FILE names no readable certificates, or when there is nothing to trust; `host` is for the
/// description.
Outcome trustCertificateAuthorities(SSL_CTX* context, const std::string& host);

} // namespace platform
