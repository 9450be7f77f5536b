#include "platform/dispatch/DispatchQueue.h"

#include "platform/dispatch/RunningStep.h"
#include "platform/foundation/Assert.h"
#include "platform/foundation/Format.h"

#include <dispatch/dispatch.h>

#include <exception>
#include <utility>

namespace platform {

struct DispatchQueue::State {
    std::string label;
    dispatch_queue_t queue;
    bool isSerial;
};

namespace {

/// An asynchronous step. It stays at one address, because std::function may copy its target when it is moved.
struct Step {
    std::shared_ptr<const void> queue;
    std::function<void()> work;
};

/// Runs the Step that `context` owns. Destroys its captures while the queue is current, because their
/// destructors may check that. An exception must not pass through the frames of libdispatch.
void runAndRelease(void* context) noexcept {
    const std::unique_ptr<Step> step(static_cast<Step*>(context));
    const RunningStep running(step->queue.get());
    step->work();
    step->work = nullptr;
}

} // namespace

DispatchQueue DispatchQueue::serial(std::string label) {
    const dispatch_queue_t queue = dispatch_queue_create(label.c_str(), DISPATCH_QUEUE_SERIAL);
    return DispatchQueue(std::make_shared<State>(State{std::move(label), queue, true}));
}

const DispatchQueue& DispatchQueue::global() {
    static const DispatchQueue* const queue = new DispatchQueue(std::make_shared<State>(State{
        "global.default-priority", dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), false}));
    return *queue;
}

const std::string& DispatchQueue::label() const {
    return _state->label;
}

void DispatchQueue::async(std::function<void()> step) const {
    // std::exchange, because moving alone can leave a copy of the captures in `step`.
    auto kept = std::make_unique<Step>(Step{_state, std::exchange(step, nullptr)});
    dispatch_async_f(_state->queue, kept.release(), runAndRelease);
}

void DispatchQueue::sync(const std::function<void()>& step) const {
    if (_state->isSerial && isCurrent())
        abortWithMessage(
            format("A step of the queue %@ waits for the same queue, which would never end. Start "
                   "the work asynchronously, or from outside the queue.\n",
                   label()));
    const std::function<void()>* const borrowed = &step;
    const State* const state = _state.get();
    __block std::exception_ptr thrown;
    dispatch_sync(state->queue, ^{
      const RunningStep running(state);
      try {
          (*borrowed)();
      } catch (...) {
          thrown = std::current_exception();
      }
    });
    if (thrown)
        std::rethrow_exception(thrown);
}

bool DispatchQueue::isCurrent() const {
    return RunningStep::isIn(_state.get());
}

} // namespace platform
