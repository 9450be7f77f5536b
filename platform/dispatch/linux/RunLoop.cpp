#include "platform/dispatch/RunLoop.h"

#include <utility>

namespace platform {

RunLoop& RunLoop::mainRunLoop() {
    // Never destroyed, because other threads may post steps until the process ends.
    static RunLoop* const loop = new RunLoop;
    return *loop;
}

bool RunLoop::turn(Clock::time_point end) {
    if (const std::function<void()> step = takeStep())
        step();
    else if (Clock::now() < end)
        wait(end);
    else
        return false;
    return true;
}

void RunLoop::stop() {
    const std::lock_guard lock(_mutex);
    _stopIsAsked = true;
    wake();
}

void RunLoop::perform(std::function<void()> step) {
    const std::lock_guard lock(_mutex);
    _steps.push_back(std::move(step));
    wake();
}

void RunLoop::setSource(Source& source) {
    const std::lock_guard lock(_mutex);
    _source = &source;
}

/// Removes and returns the next step, or null.
std::function<void()> RunLoop::takeStep() {
    const std::lock_guard lock(_mutex);
    if (_steps.empty())
        return nullptr;
    std::function<void()> step = std::move(_steps.front());
    _steps.pop_front();
    return step;
}

void RunLoop::wait(Clock::time_point end) {
    // No lock is needed: only the main thread changes the source.
    if (_source)
        return _source->wait(std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()));
    std::unique_lock lock(_mutex);
    _woken.wait_until(lock, end, [this] { return _stopIsAsked || !_steps.empty(); });
}

/// Requires the lock.
void RunLoop::wake() {
    _woken.notify_one();
    if (_source)
        _source->wake();
}

} // namespace platform
