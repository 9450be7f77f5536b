#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace platform {

/// The main thread's loop: it waits for descriptors, timers and posted steps and runs what is due, all on the
/// main thread.
class RunLoop {
public:
    using Clock = std::chrono::steady_clock;

    /// What a descriptor is waited for, or is ready for.
    struct Interest {
        bool read = false;
        bool write = false;
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

    // From inside the loop only.

    /// Calls `ready` while the descriptor is ready for one of `interest` (errors count as both). Replaces
    /// what was set for it before; without any interest the descriptor is forgotten.
    void setDescriptor(int descriptor, Interest interest, std::function<void(Interest)> ready);

    /// One timer for each owner: calls `fire` once after `delay`, instead of what was set before.
    void setTimer(const void* owner, Clock::duration delay, std::function<void()> fire);
    void removeTimer(const void* owner);

private:
    RunLoop();
    ~RunLoop();
    struct State;
    const std::unique_ptr<State> _state;
};

} // namespace platform
