#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace sample {

/// A stand-in for the crash-reporting service on 127.0.0.1: takes build registrations and symbol uploads,
/// refuses with 400 and a sentence what lacks a header or field, and keeps what it took in a folder.
///
/// The folder gets one folder for each call, "1-registration", "2-upload", ... in the order of the calls,
/// with "request" (method, path, headers and fields, a line each) and, for uploads, the archive under its own
/// name.
class LocalService {
public:
    /// Starts to listen; `port` 0 lets the system pick one. Throws std::runtime_error, which names the port
    /// or the folder, when it cannot.
    LocalService(std::string folder, std::uint16_t port);
    /// Finishes the calls in progress.
    ~LocalService();
    LocalService(const LocalService&) = delete;
    LocalService& operator=(const LocalService&) = delete;

    std::uint16_t port() const;

private:
    class Implementation;
    std::unique_ptr<Implementation> _implementation;
};

} // namespace sample
