#include "support/SecureServer.h"

#include <stdexcept>

namespace support {

std::unique_ptr<httplib::Server> secureServer(const std::string& certificate, ClientCertificate client) {
    const std::string clients = certificatePath("other.pem");
    auto server = std::make_unique<httplib::SSLServer>(
        certificatePath(certificate).c_str(), certificatePath("key.pem").c_str(),
        client == ClientCertificate::required ? clients.c_str() : nullptr);
    if (!server->is_valid())
        throw std::runtime_error("the test server does not take its certificate");
    return server;
}

} // namespace support
