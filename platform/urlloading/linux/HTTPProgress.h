#pragma once

#include "platform/foundation/Error.h"
#include "platform/urlloading/linux/StallDetector.h"

#include <curl/curl.h>

#include <chrono>
#include <string>
#include <vector>

namespace platform {

/// Knows how far an exchange has come and whether it still moves.
class HTTPProgress {
public:
    using Clock = StallDetector::Clock;
    enum class Phase { resolving, connecting, securing, sending, waiting, receiving };

    /// `limit` is the longest time without progress.
    explicit HTTPProgress(std::chrono::milliseconds limit) : _limit(limit) {}

    Phase phase = Phase::resolving;
    /// The open sockets. More than one while libcurl tries several addresses.
    std::vector<curl_socket_t> sockets;

    /// Whether there has been no progress for the limit. Call it at least every
    /// StallDetector::checkInterval.
    bool isStalled(Clock::time_point now);
    /// The error of a stall in the present phase. `host` is for its description.
    Error stallError(const std::string& host) const;

    /// The value of CURLOPT_CONNECTTIMEOUT_MS in the present phase. libcurl counts it from the start of the
    /// exchange, applies it until TLS is set up, and divides the time that is left among the addresses of the
    /// host. So it moves on while the name is looked up, and ends when a connection is made.
    long connectTimeout() const;

private:
    const std::chrono::milliseconds _limit;
    const Clock::time_point _started = Clock::now();
    StallDetector _stall{_limit, _started};
};

} // namespace platform
