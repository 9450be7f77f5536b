#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace sample {

/// A stand-in for the crash-reporting service on 127.0.0.1. It accepts build registrations and symbol uploads
/// and keeps them in a folder. It refuses a call that lacks a header or a field with 400 and a sentence.
///
/// The folder gets one folder for each call, "1-registration", "2-upload", ... in the order of the calls,
/// with "request" (method, path, headers and fields, a line each) and, for uploads, the archive under its own
/// name.
class LocalService {
public:
    /// PEM files. Empty: HTTP instead of HTTPS.
    struct TLS {
        std::string certificate;
        std::string key;
    };

    /// Starts to listen; `port` 0 lets the system pick one. Throws std::runtime_error, which names the port,
    /// the folder or the certificate, when it cannot.
    LocalService(std::string folder, std::uint16_t port, const TLS& tls = {});
    /// Finishes the calls in progress.
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
