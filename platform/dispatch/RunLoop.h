#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace platform {

/// The main thread's loop: it runs posted steps and what its source has to do, all on the main thread.
class RunLoop {
public:
    using Clock = std::chrono::steady_clock;

    /// What the loop waits in while it has no step to run.
    class Source {
    public:
        virtual ~Source() = default;
        /// Waits until something is due, `limit` has passed or `wake` is called. Then does what is due.
        virtual void wait(std::chrono::milliseconds limit) = 0;
        /// Ends the wait that is under way, or else the next one. Any thread.
        virtual void wake() = 0;
    };

    static RunLoop& mainRunLoop();

    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// Runs until `stop`, or until `limit` has passed; true when it was stopped. Only the main thread may run
    /// the loop, and not from one of its own steps: anything else prints a message and ends the process.
    bool run(Clock::duration limit = Clock::duration::max());

    /// Ends the current `run` after the step at hand, or else the next one before its first. Any thread.
    void stop();

    /// Runs `step` once in the loop, after those that were given before. Any thread.
    void perform(std::function<void()> step);

    /// Gives the loop its only source, which must live as long as the process. From inside the loop only.
    void setSource(Source& source);

private:
    RunLoop() = default;
    bool takeStop();
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
