#include "support/HTTPServer.h"

#include "support/TemporaryFolder.h"

#include <httplib.h>

#include <stdexcept>

namespace support {
namespace {

// The server would take a form apart while it reads it, and with it the bytes that tests want to see, so the
// type is hidden from it under this name.
constexpr const char* hiddenContentType = "X-Hidden-Content-Type";

httplib::Server::HandlerResponse hideContentType(const httplib::Request& request, httplib::Response&) {
    auto& headers = const_cast<httplib::Headers&>(request.headers);
    if (const auto type = headers.find("Content-Type"); type != headers.end()) {
        headers.emplace(hiddenContentType, type->second);
        headers.erase(type);
    }
    return httplib::Server::HandlerResponse::Unhandled;
}

HTTPRequest received(const httplib::Request& request) {
    HTTPRequest result{request.method, request.target, {}, request.body};
    for (const auto& [name, value] : request.headers)
        result.headers.emplace(name == hiddenContentType ? "Content-Type" : name, value);
    return result;
}

std::unique_ptr<httplib::Server> makeServer(const std::optional<HTTPServer::TLS>& tls) {
    if (!tls)
        return std::make_unique<httplib::Server>();
    const TemporaryFolder folder;
    const std::string certificate = folder.write("certificate.pem", tls->certificate.certificate);
    const std::string key = folder.write("key.pem", tls->certificate.key);
    const char* const authority = tls->demandsClientCertificate ? certificate.c_str() : nullptr;
    auto server = std::make_unique<httplib::SSLServer>(certificate.c_str(), key.c_str(), authority);
    if (!server->is_valid())
        throw std::runtime_error("the test server does not take its certificate");
    return server;
}

} // namespace

HTTPServer::HTTPServer(Handler handler, const std::optional<TLS>& tls) : _server(makeServer(tls)) {
    const auto answerTo = [handler = std::move(handler)](const auto& request, auto& response) {
        const HTTPAnswer answer = handler(received(request));
        response.status = answer.status;
        for (const auto& [name, value] : answer.headers)
            response.set_header(name, value);
        response.set_content(answer.body, answer.contentType);
    };
    _server->set_keep_alive_max_count(1);
    _server->set_payload_max_length(SIZE_MAX);
    _server->set_pre_routing_handler(&hideContentType);
    _server->Get(".*", answerTo);
    _server->Post(".*", answerTo);
    socket_t listener = -1;
    _server->set_socket_options([&](socket_t socket) { listener = socket; });
    const int port = _server->bind_to_any_port("127.0.0.1");
    // The library's own queue of 5 would make the system drop connections that come all at once.
    listen(listener, SOMAXCONN);
    _origin = (tls ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port);
    _thread = std::thread([this] { _server->listen_after_bind(); });
}

HTTPServer::~HTTPServer() {
    // A stop before the server runs is lost.
    while (!_server->is_running())
        std::this_thread::yield();
    _server->stop();
    _thread.join();
}

std::string HTTPRequest::header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

std::vector<FormPart> parseForm(const std::string& contentType, const std::string& body) {
    std::vector<FormPart> parts;
    httplib::Server server;
    server.Post("/", [&](const httplib::Request&, httplib::Response&, const httplib::ContentReader& read) {
        read(
            [&](const httplib::MultipartFormData& part) {
                parts.push_back({part.name, part.filename, part.content_type, ""});
                return true;
            },
            [&](const char* bytes, std::size_t count) {
                parts.back().content.append(bytes, count);
                return true;
            });
    });
    const int port = server.bind_to_any_port("127.0.0.1");
    std::thread thread([&] { server.listen_after_bind(); });
    // This parser does not know the preamble, which readers are to skip (RFC 2046 section 5.1.1).
    httplib::Client("127.0.0.1", port).Post("/", body.substr(body.find("--")), contentType);
    server.stop();
    thread.join();
    return parts;
}

} // namespace support
