#include "platform/urlloading/linux/HTTPProgress.h"

#include "platform/foundation/Format.h"
#include "platform/urlloading/URLError.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <climits>

namespace platform {

/// The number of bytes that the peer of a TCP socket has acknowledged plus the number that it has sent; 0 for
/// any other socket. Bytes that wait in the send buffer are not progress.
static std::uint64_t bytesMovedThroughSocket(curl_socket_t socket) {
    tcp_info info = {};
    socklen_t size = sizeof info;
    if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
        return 0;
    return info.tcpi_bytes_acked + info.tcpi_bytes_received;
}

bool HTTPProgress::isStalled(Clock::time_point now) {
    const Clock::duration pause = now - _lastCheck;
    if (pause < checkInterval)
        return false;
    _lastCheck = now;
    // The polling thread was delayed, for example by a suspended machine; do not count that as a stall.
    if (pause > 4 * checkInterval)
        _lastProgress += pause;
    std::uint64_t moved = 0;
    for (const curl_socket_t socket : sockets)
        moved += bytesMovedThroughSocket(socket);
    if (phase != _lastPhase || moved != _lastBytesMoved)
        _lastProgress = now;
    _lastPhase = phase;
    _lastBytesMoved = moved;
    return now - _lastProgress >= _limit;
}

Error HTTPProgress::stallError(const std::string& host) const {
    constexpr std::array phases = {"looking up the host's name", "connecting",
                                   "securing the connection",    "sending the request",
                                   "waiting for the answer",     "receiving the answer"};
    const std::int64_t milliseconds = _limit.count();
    const std::string time = milliseconds % 1000 == 0 ? format("%d seconds", milliseconds / 1000)
                                                      : format("%d milliseconds", milliseconds);
    return urlError(URLErrorCode::timedOut,
                    format("The exchange with %@ made no progress for %@ while %@. Check the network and the "
                           "server, then try again.",
                           host, time, phases.at(static_cast<std::size_t>(phase))));
}

long HTTPProgress::connectTimeout() const {
    const std::chrono::milliseconds left = phase < Phase::securing ? _limit : std::chrono::hours(24);
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - _start);
    return static_cast<long>(std::clamp<std::int64_t>((elapsed + left).count(), 1, INT_MAX));
}

} // namespace platform
