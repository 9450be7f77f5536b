#include "support/HTTPServer.h"

#include "support/TemporaryFolder.h"

#include <httplib.h>

#include <stdexcept>
#include <thread>

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

void route(httplib::Server& server, const httplib::Server::Handler& handler) {
    server.Get(".*", handler);
    server.Post(".*", handler);
    server.Put(".*", handler);
    server.Patch(".*", handler);
    server.Delete(".*", handler);
    server.Options(".*", handler);
}

} // namespace

struct HTTPServer::State {
    State(Handler handler, std::unique_ptr<httplib::Server> made, const char* schemeName)
        : server(std::move(made)), scheme(schemeName) {
        if (!server->is_valid())
            throw std::runtime_error("the test server does not take its certificate");
        server->set_keep_alive_max_count(1);
        server->set_payload_max_length(SIZE_MAX);
        server->set_pre_routing_handler(&hideContentType);
        route(*server, [handler = std::move(handler)](const auto& request, auto& response) {
            const HTTPAnswer answer = handler(received(request));
            response.status = answer.status;
            for (const auto& [name, value] : answer.headers)
                response.set_header(name, value);
            response.set_content(answer.body, answer.contentType);
        });
        socket_t listener = -1;
        server->set_socket_options([&](socket_t socket) { listener = socket; });
        port = server->bind_to_any_port("127.0.0.1");
        // The library's own queue of 5 would make the system drop connections that come all at once.
        listen(listener, SOMAXCONN);
        thread = std::thread([this] { server->listen_after_bind(); });
    }
    ~State() {
        // A stop before the server runs is lost.
        while (!server->is_running())
            std::this_thread::yield();
        server->stop();
        thread.join();
    }

    std::unique_ptr<httplib::Server> server;
    const char* scheme;
    int port = 0;
    std::thread thread;
};

namespace {

std::unique_ptr<httplib::Server> secureServer(const HTTPServer::TLS& tls) {
    const TemporaryFolder folder;
    const std::string certificate = folder.write("certificate.pem", tls.certificate.certificate);
    const std::string key = folder.write("key.pem", tls.certificate.key);
    const std::string authority = folder.write("authority.pem", tls.clientAuthority);
    return std::make_unique<httplib::SSLServer>(certificate.c_str(), key.c_str(),
                                                tls.clientAuthority.empty() ? nullptr : authority.c_str());
}

} // namespace

HTTPServer::HTTPServer(Handler handler)
    : _state(std::make_unique<State>(std::move(handler), std::make_unique<httplib::Server>(), "http")) {}

HTTPServer::HTTPServer(Handler handler, const TLS& tls)
    : _state(std::make_unique<State>(std::move(handler), secureServer(tls), "https")) {}

HTTPServer::~HTTPServer() = default;

int HTTPServer::port() const {
    return _state->port;
}

std::string HTTPServer::url(const std::string& path) const {
    return std::string(_state->scheme) + "://127.0.0.1:" + std::to_string(_state->port) + path;
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
