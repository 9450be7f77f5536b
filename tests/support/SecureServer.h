#pragma once

#include "support/HTTPServer.h"

namespace support {

/// The path of a file of make-certificates.
inline std::string certificatePath(const std::string& name) {
    return ORVANE_TEST_CERTIFICATES "/" + name;
}

enum class ClientCertificate { ignored, required };

/// Makes an HTTPServer an HTTPS server with `certificate`, a file of make-certificates. It accepts no client
/// certificate.
std::unique_ptr<httplib::Server> secureServer(const std::string& certificate,
                                              ClientCertificate client = ClientCertificate::ignored);

} // namespace support
