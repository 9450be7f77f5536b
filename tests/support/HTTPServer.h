#pragma once

#include <httplib.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace support {

/// A request as received by the server, with a body that is not parsed.
using HTTPRequest = httplib::Request;

struct HTTPAnswer {
    int status = 200;
    std::string body = {};
    std::string contentType = "text/plain";
    httplib::Headers headers = {};
};

/// A request with this header is answered with its value as the status, before the body is read.
inline constexpr const char* rejectionHeader = "X-Reject";

/// A real HTTP server (cpp-httplib) on a port of 127.0.0.1 that the system assigns. It runs until it is
/// destroyed and calls the handler on several threads.
class HTTPServer {
public:
    using Handler = std::function<HTTPAnswer(const HTTPRequest&)>;

    /// With `secure`, an HTTPS server.
    explicit HTTPServer(Handler handler, std::unique_ptr<httplib::Server> secure = nullptr);
    ~HTTPServer();

    /// "http://127.0.0.1:<port>" or "https://...", followed by `path`.
    std::string url(const std::string& path = "/") const { return _origin + path; }

private:
    std::string _origin;
    std::unique_ptr<httplib::Server> _server;
    std::thread _thread;
};

} // namespace support
