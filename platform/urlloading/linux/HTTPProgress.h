#pragma once

#include "platform/foundation/Error.h"

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// Knows how far an exchange has come, and decides when it has made no progress for too long.
class HTTPProgress {
public:
    using Clock = std::chrono::steady_clock;
    enum class Phase { resolving, connecting, securing, sending, waiting, receiving };

    /// How often `isStalled` must be called while the exchange runs.
    static constexpr std::chrono::milliseconds checkInterval{250};

    /// `limit` is the longest time without progress.
    HTTPProgress(std::chrono::milliseconds limit, Clock::time_point start)
        : _limit(limit), _start(start), _lastProgress(start), _lastCheck(start) {}

    Phase phase = Phase::resolving;
    /// The open sockets. More than one while libcurl tries several addresses.
    std::vector<curl_socket_t> sockets;

    /// Whether there has been no progress for the constructor's `limit`. Progress is a new `phase`, or bytes
    /// that a peer has acknowledged or sent. Reads the number of bytes at most once in each checkInterval,
    /// because the caller may be woken often.
    bool isStalled(Clock::time_point now);
    /// The error of a stall in the present phase. `host` is for its description.
    Error stallError(const std::string& host) const;

    /// The value of CURLOPT_CONNECTTIMEOUT_MS in the present phase. libcurl counts it from the start of the
    /// exchange, applies it until TLS is set up, and divides the time that is left among the addresses of the
    /// host. So the value grows while the name is looked up, and there is no limit once TLS
    /// is being set up: `isStalled` then decides.
    long connectTimeout() const;

private:
    const std::chrono::milliseconds _limit;
    const Clock::time_point _start;
    Clock::time_point _lastProgress;
    Clock::time_point _lastCheck;
    Phase _lastPhase = Phase::resolving;
    std::uint64_t _lastBytesMoved = 0;
};

} // namespace platform
