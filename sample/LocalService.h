#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace sample {

/// A local replacement for the crash-reporting service, on 127.0.0.1. It accepts build registrations and
/// symbol uploads and stores them in a folder. If a header or field is missing, it answers 400 and the name.
///
/// Each call is stored in a folder "1-registration", "2-upload", ..., numbered in the order of the calls. It
/// contains the file "request" (method, path, headers and fields, one per line) and an upload's archive.
class LocalService {
public:
    /// Paths of PEM files. If empty, the service uses HTTP.
    struct TLS {
        std::string certificate;
        std::string key;
    };

    /// Starts to listen. If `port` is 0, the system assigns one. Throws a std::runtime_error that names the
    /// port, the folder or the certificate if it fails.
    LocalService(std::string folder, std::uint16_t port, const TLS& tls = {});
    /// Waits for the calls in progress.
    ~LocalService();
    LocalService(const LocalService&) = delete;
    LocalService& operator=(const LocalService&) = delete;

    /// "http://127.0.0.1:<port>" or "https://...".
    std::string origin() const;

private:
    class Implementation;
    std::unique_ptr<Implementation> _implementation;
};

} // namespace sample
