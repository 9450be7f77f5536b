#pragma once

#include <chrono>
#include <cstdint>

namespace platform {

/// Decides when an exchange has made no progress for too long.
class StallDetector {
public:
    using Clock = std::chrono::steady_clock;

    /// How often `recordProgress` must be called while the exchange runs.
    static constexpr std::chrono::milliseconds checkInterval{250};

    StallDetector(std::chrono::milliseconds limit, Clock::time_point start)
        : _limit(limit), _lastProgress(start), _lastCheck(start) {}

    /// Whether `recordProgress` must be called. False while less than `checkInterval` has passed since the
    /// last call, so that a caller that is woken often need not read the number of bytes each time.
    bool isDue(Clock::time_point now) const { return now - _lastCheck >= checkInterval; }

    /// Records the state of the exchange at `now`; true when it has not changed for `limit`. Progress is a
    /// change of `phase` or of `bytesMoved`, in any direction.
    bool recordProgress(Clock::time_point now, int phase, std::uint64_t bytesMoved);

private:
    const std::chrono::milliseconds _limit;
    Clock::time_point _lastProgress;
    Clock::time_point _lastCheck;
    int _lastPhase = 0;
    std::uint64_t _lastBytesMoved = 0;
};

} // namespace platform
