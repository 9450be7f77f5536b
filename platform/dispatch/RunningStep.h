#pragma once

namespace platform {

/// While it exists, the calling thread runs a step of `queue`. Steps nest: the queues of the outer steps are
/// current too. (dispatch_get_specific(3) of macOS would know only the innermost queue.)
class RunningStep {
public:
    explicit RunningStep(const void* queue) : _queue(queue), _outer(innermost) { innermost = this; }
    ~RunningStep() { innermost = _outer; }
    RunningStep(const RunningStep&) = delete;
    RunningStep& operator=(const RunningStep&) = delete;

    /// Whether the calling thread runs a step of `queue`.
    static bool isIn(const void* queue) {
        const RunningStep* step = innermost;
        while (step && step->_queue != queue)
            step = step->_outer;
        return step;
    }

private:
    static inline thread_local const RunningStep* innermost = nullptr;
    const void* const _queue;
    const RunningStep* const _outer;
};

} // namespace platform
