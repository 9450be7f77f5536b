#include "platform/urlloading/linux/StallDetector.h"

namespace platform {

bool StallDetector::recordProgress(Clock::time_point now, int phase, std::uint64_t bytesMoved) {
    const Clock::duration pause = now - _lastCheck;
    _lastCheck = now;
    // The polling thread was delayed, for example by a suspended machine; do not count that as a stall.
    if (pause > 4 * checkInterval)
        _lastProgress += pause;
    if (phase != _lastPhase || bytesMoved != _lastBytesMoved)
        _lastProgress = now;
    _lastPhase = phase;
    _lastBytesMoved = bytesMoved;
    return now - _lastProgress >= _limit;
}

} // namespace platform
