#pragma once

#include <httplib.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace support {

/// A request as received by the server, with a body that is not parsed.
using HTTPRequest = httplib::Request;

/// The path of a file of make-certificates.
inline std::string certificatePath(const std::string& name) {
    return ORVANE_TEST_CERTIFICATES "/" + name;
}

struct HTTPAnswer {
    int status = 200;
    std::string body = {};
    std::string contentType = "text/plain";
    httplib::Headers headers = {};
};

struct TLS {
    /// A file of make-certificates; if empty, the server uses HTTP.
    std::string certificate = {};
    /// The server requires a client certificate and accepts none.
    bool demandsClientCertificate = false;
};

/// A real HTTP or HTTPS server (cpp-httplib) on a port of 127.0.0.1 that the system assigns. It runs until
/// it is destroyed and calls the handler on several threads.
class HTTPServer {
public:
    using Handler = std::function<HTTPAnswer(const HTTPRequest&)>;

    explicit HTTPServer(Handler handler, const TLS& tls = {});
    ~HTTPServer();

    /// "http://127.0.0.1:<port>" or "https://...", followed by `path`.
    std::string url(const std::string& path = "/") const { return _origin + path; }

private:
    std::unique_ptr<httplib::Server> _server;
    std::string _origin;
    std::thread _thread;
};

} // namespace support
