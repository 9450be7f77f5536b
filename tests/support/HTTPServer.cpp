#include "support/HTTPServer.h"

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

} // namespace

HTTPServer::HTTPServer(Handler handler, std::unique_ptr<httplib::Server> secure)
    : _origin(secure ? "https://127.0.0.1:" : "http://127.0.0.1:"),
      _server(secure ? std::move(secure) : std::make_unique<httplib::Server>()) {
    const auto answerTo = [handler = std::move(handler)](const auto& request, auto& response) {
        disguiseType(request, false);
        const HTTPAnswer answer = handler(request);
        response.status = answer.status;
        response.headers.insert(answer.headers.begin(), answer.headers.end());
        response.set_content(answer.body, answer.contentType);
    };
    _server->set_keep_alive_max_count(1);
    _server->set_pre_routing_handler([](const auto& request, auto& response) {
        disguiseType(request, true);
        if (request.has_header(rejectionHeader)) {
            response.status = std::stoi(request.get_header_value(rejectionHeader));
            response.set_content("rejected", "text/plain");
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    _server->Get(".*", answerTo);
    _server->Post(".*", answerTo);
    _origin += std::to_string(_server->bind_to_any_port("127.0.0.1"));
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
