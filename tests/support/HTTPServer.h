#pragma once

#include "platform/urlloading/HTTPHeaders.h"

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
}

namespace support {

/// A request as the server received it.
struct HTTPRequest {
    std::string method;
    /// Path and query as they were sent.
    std::string target;
    platform::HTTPHeaders headers;
    std::string body;

    /// Empty when the request has no such header.
    std::string header(const std::string& name) const {
        const auto found = headers.find(name);
        return found == headers.end() ? "" : found->second;
    }
};

/// Where a file of make-certificates is.
inline std::string certificatePath(const std::string& name) {
    return ORVANE_TEST_CERTIFICATES "/" + name;
}

struct HTTPAnswer {
    int status = 200;
    std::string body = {};
    std::string contentType = "text/plain";
    platform::HTTPHeaders headers = {};
};

struct TLS {
    /// One of make-certificates; none means HTTP.
    std::string certificate = {};
    /// No client's certificate is accepted.
    bool demandsClientCertificate = false;
};

/// A real HTTP or HTTPS server (cpp-httplib) on a port of its own of 127.0.0.1, until it is destroyed.
/// The handler runs on the server's threads, several at a time.
class HTTPServer {
public:
    using Handler = std::function<HTTPAnswer(const HTTPRequest&)>;

    explicit HTTPServer(Handler handler, const TLS& tls = {});
    ~HTTPServer();

    /// "http://127.0.0.1:<port>" or "https://..." with `path` behind it.
    std::string url(const std::string& path = "/") const { return _origin + path; }

private:
    std::unique_ptr<httplib::Server> _server;
    std::string _origin;
    std::thread _thread;
};

struct FormPart {
    std::string name;
    std::string filename;
    std::string contentType;
    std::string content;
};

/// The parts of a multipart/form-data body as cpp-httplib's server parses it.
std::vector<FormPart> parseForm(const std::string& contentType, const std::string& body);

} // namespace support
