#include "support/HTTPServer.h"

#include <stdexcept>

namespace support {
namespace {

/// Adds a prefix to the request's content type, or removes it. The prefix keeps the server from parsing
/// forms, because tests need the original bytes.
void disguiseType(const httplib::Request& request, bool isDisguised) {
    constexpr std::string_view prefix = "not ";
    auto& headers = const_cast<httplib::Headers&>(request.headers);
    if (const auto type = headers.find("Content-Type"); type != headers.end())
        isDisguised ? type->second.insert(0, prefix) : type->second.erase(0, prefix.size());
}

std::unique_ptr<httplib::Server> makeServer(const TLS& tls) {
    if (tls.certificate.empty())
        return std::make_unique<httplib::Server>();
    const std::string clients = certificatePath("other.pem");
    auto server = std::make_unique<httplib::SSLServer>(
        certificatePath(tls.certificate).c_str(), certificatePath("key.pem").c_str(),
        tls.demandsClientCertificate ? clients.c_str() : nullptr);
    if (!server->is_valid())
        throw std::runtime_error("the test server does not take its certificate");
    return server;
}

} // namespace

HTTPServer::HTTPServer(Handler handler, const TLS& tls) : _server(makeServer(tls)) {
    const auto answerTo = [handler = std::move(handler)](const auto& request, auto& response) {
        disguiseType(request, false);
        const HTTPAnswer answer = handler(request);
        response.status = answer.status;
        response.headers.insert(answer.headers.begin(), answer.headers.end());
        response.set_content(answer.body, answer.contentType);
    };
    _server->set_keep_alive_max_count(1);
    _server->set_pre_routing_handler([](const auto& request, auto&) {
        disguiseType(request, true);
        return httplib::Server::HandlerResponse::Unhandled;
    });
    _server->Get(".*", answerTo);
    _server->Post(".*", answerTo);
    const int port = _server->bind_to_any_port("127.0.0.1");
    _origin = (tls.certificate.empty() ? "http://127.0.0.1:" : "https://127.0.0.1:") + std::to_string(port);
    _thread = std::thread([this] { _server->listen_after_bind(); });
}

HTTPServer::~HTTPServer() {
    // The server ignores a stop before it runs.
    while (!_server->is_running())
        std::this_thread::yield();
    _server->stop();
    _thread.join();
}

} // namespace support
