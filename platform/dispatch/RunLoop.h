#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace platform {

/// The main thread's loop. It runs posted steps and handles the events of its source.
class RunLoop {
public:
    using Clock = std::chrono::steady_clock;

    /// Waits for events, such as those of sockets, while the loop has no step to run.
    class Source {
    public:
        virtual ~Source() = default;
        /// Waits for an event, for `limit` or until `wake` is called, then handles the events.
        virtual void wait(std::chrono::milliseconds limit) = 0;
        /// Ends the current wait; if there is none, the next one returns at once. Any thread.
        virtual void wake() = 0;
    };

    /// The only run loop. Any thread.
    static RunLoop& mainRunLoop();

    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// Runs until `stop` is called (returns true) or `limit` has passed (returns false). Only the main thread
    /// may call it, and not from a step of the loop: otherwise the process aborts with a message.
    bool run(Clock::duration limit = Clock::duration::max());

    /// Ends the current `run` after its current step; if none is running, the next one returns at once. Any
    /// thread.
    void stop();

    /// Runs `step` once in the loop, after the steps that were added before. Any thread.
    void perform(std::function<void()> step);

    /// Sets the only source. It must live until the process ends. Call this inside the loop only. Not defined
    /// on macOS, where the system's run loop has sources of its own.
    void setSource(Source& source);

private:
    RunLoop() = default;
    bool takeStop();
    /// Runs a step, or waits for one until `end`. False if `end` has passed.
    bool turn(Clock::time_point end);
    std::function<void()> takeStep();
    void wait(Clock::time_point end);
    void wake();

    std::mutex _mutex;
    std::condition_variable _woken;
    std::deque<std::function<void()>> _steps;
    Source* _source = nullptr;
    bool _stopIsAsked = false;
    bool _isRunning = false;
};

} // namespace platform
