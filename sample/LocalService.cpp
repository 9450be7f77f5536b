#include "LocalService.h"

#include <httplib.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace sample {
namespace {

namespace fs = std::filesystem;

constexpr std::array commonHeaders = {"X-Tarnwhistle-API-Key",
                                      "X-Tarnwhistle-Developer-Token",
                                      "X-Tarnwhistle-API-Client-Id",
                                      "X-Tarnwhistle-API-Client-Build-Version",
                                      "User-Agent",
                                      "X-Tarnwhistle-API-Client-Display-Version"};
constexpr std::array registrationFields = {"app_name", "tool_details"};
constexpr std::array uploadFields = {"project[identifier]",
                                     "project[display_version]",
                                     "project[build_version]",
                                     "code_mapping[build_configuration]",
                                     "code_mapping[type]",
                                     "com_tarnwhistle_run_version",
                                     "code_mapping[executables][][identifier]",
                                     "code_mapping[executables][][arch]",
                                     "code_mapping[file]"};
constexpr std::uint64_t largestUpload = 1ULL << 33;

/// The first problem of `request` as a sentence; empty if there is none.
template <class Fields>
std::string whatIsMissing(const httplib::Request& request, const Fields& fields) {
    for (const char* header : commonHeaders)
        if (!request.has_header(header))
            return std::string("The header ") + header + " is missing.\n";
    for (const char* field : fields)
        if (!request.has_file(field))
            return std::string("The form field ") + field + " is missing.\n";
    return "";
}

std::string readable(const httplib::Request& request) {
    std::ostringstream text;
    text << request.method << ' ' << request.path << '\n';
    for (const auto& [name, value] : request.headers)
        if (std::string_view(name).starts_with("X-Tarnwhistle") || name == "User-Agent")
            text << name << ": " << value << '\n';
    for (const auto& [name, part] : request.files) {
        text << name << " = ";
        if (part.filename.empty())
            text << part.content << '\n';
        else
            text << part.filename << " (" << part.content_type << ", " << part.content.size() << " bytes)\n";
    }
    return text.str();
}

void keep(const fs::path& folder, const httplib::Request& request) {
    fs::create_directories(folder);
    std::ofstream(folder / "request") << readable(request);
    for (const auto& [name, part] : request.files)
        if (!part.filename.empty())
            std::ofstream(folder / fs::path(part.filename).filename(), std::ios::binary) << part.content;
}

std::unique_ptr<httplib::Server> makeServer(const LocalService::TLS& tls) {
    if (tls.certificate.empty())
        return std::make_unique<httplib::Server>();
    auto server = std::make_unique<httplib::SSLServer>(tls.certificate.c_str(), tls.key.c_str());
    if (!server->is_valid())
        throw std::runtime_error("Cannot use the certificate " + tls.certificate + " with the key " +
                                 tls.key);
    return server;
}

} // namespace

class LocalService::Implementation {
public:
    Implementation(fs::path folder, std::uint16_t wantedPort, const TLS& tls)
        : _folder(std::move(folder)), _scheme(tls.certificate.empty() ? "http" : "https"),
          _server(makeServer(tls)) {
        fs::create_directories(_folder);
        _server->set_payload_max_length(largestUpload);
        // By default, the library lets several servers share a port, and each would get a part of the
        // requests.
        _server->set_socket_options([](socket_t socket) {
            const int on = 1;
            setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        });
        _server->Post(R"(/spi/v1/platforms/[^/]+/apps/[^/]+/built)",
                      handler("registration", registrationFields));
        _server->Post(R"(/api/v3/platforms/[^/]+/code_mappings)", handler("upload", uploadFields));
        int port = wantedPort;
        if (wantedPort == 0)
            port = _server->bind_to_any_port("127.0.0.1");
        else if (!_server->bind_to_port("127.0.0.1", wantedPort))
            port = -1;
        if (port < 0)
            throw std::runtime_error("Cannot listen on 127.0.0.1:" + std::to_string(wantedPort) +
                                     ": is another service running there?");
        _port = static_cast<std::uint16_t>(port);
        _thread = std::thread([this] { _server->listen_after_bind(); });
        while (!_server->is_running())
            std::this_thread::yield();
    }
    ~Implementation() {
        _server->stop();
        _thread.join();
    }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    std::string origin() const { return _scheme + "://127.0.0.1:" + std::to_string(_port); }

private:
    template <class Fields>
    httplib::Server::Handler handler(const std::string& kind, const Fields& fields) {
        return [this, kind, fields](const httplib::Request& request, httplib::Response& response) {
            const std::string missing = whatIsMissing(request, fields);
            response.status = missing.empty() ? 201 : 400;
            response.set_content(missing, "text/plain");
            if (missing.empty())
                keep(_folder / (std::to_string(++_calls) + "-" + kind), request);
        };
    }

    fs::path _folder;
    std::string _scheme;
    std::unique_ptr<httplib::Server> _server;
    std::thread _thread;
    std::atomic<int> _calls = 0;
    std::uint16_t _port = 0;
};

LocalService::LocalService(std::string folder, std::uint16_t port, const TLS& tls)
    : _implementation(std::make_unique<Implementation>(std::move(folder), port, tls)) {}

LocalService::~LocalService() = default;

std::string LocalService::origin() const {
    return _implementation->origin();
}

} // namespace sample
