#pragma once

#include <functional>
#include <memory>
#include <string>

namespace platform {

/// Runs steps one after another (a serial queue) or concurrently (the global queue). A DispatchQueue is a
/// handle: copies refer to the same queue, which lives until its last step has run.
///
/// Asynchronous steps run on threads that all queues share: at most 64, not counting those that wait in
/// `sync`. They are started when needed. `exit` waits for running steps and drops the others. An asynchronous
/// step must not throw. On macOS, Grand Central Dispatch limits the threads, and `exit` does not wait.
class DispatchQueue {
public:
    /// Creates a serial queue: it runs one step at a time, in the order of the calls.
    static DispatchQueue serial(std::string label);

    /// The concurrent queue of default priority.
    static const DispatchQueue& global();

    /// As given to `serial`; the system's name of the global queue.
    const std::string& label() const;

    /// Returns at once; `step` runs later on another thread.
    void async(std::function<void()> step) const;

    /// Runs `step` on the calling thread after all earlier steps of a serial queue. Returns after `step`.
    /// A call from a step of the same serial queue would deadlock, so it aborts the process with a message.
    void sync(const std::function<void()>& step) const;

    /// Whether the caller runs in a step of this queue.
    bool isCurrent() const;

private:
    struct State;
    explicit DispatchQueue(std::shared_ptr<State> state) : _state(std::move(state)) {}
    std::shared_ptr<State> _state;
};

} // namespace platform
