#pragma once

#include <functional>
#include <memory>
#include <string>

namespace platform {

/// Runs steps in order (a serial queue) or side by side (the global queue), like the platform's dispatch
/// queues. A queue is a cheap handle: copies name the same queue, which lives until its last step has run.
///
/// Asynchronous steps run on threads that all queues share; threads are started when there is work, at most
/// 64 besides those that wait in `sync`. The process's exit waits for the steps that run and drops those that
/// have not begun or still wait. A step that runs asynchronously must not let an exception out.
class DispatchQueue {
public:
    /// A new serial queue: one step at a time, in the order in which they came.
    static DispatchQueue serial(std::string label);

    /// The concurrent queue of default priority.
    static const DispatchQueue& global();

    const std::string& label() const;

    /// Returns at once; `step` runs later on another thread.
    void async(std::function<void()> step) const;

    /// Runs `step` on the calling thread when all steps before it have run, and returns after it. From a step
    /// of the same queue this can never end: it prints a message and ends the process.
    void sync(const std::function<void()>& step) const;

    /// Whether the caller runs inside a step of this queue.
    bool isCurrent() const;

    /// The label of the queue whose step the caller runs in, the innermost one; empty outside all queues.
    static std::string currentLabel();

private:
    struct State;
    explicit DispatchQueue(std::shared_ptr<State> state) : _state(std::move(state)) {}
    std::shared_ptr<State> _state;
};

} // namespace platform
