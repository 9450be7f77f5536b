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

/// Destroys the step's captures while the queue is current, because their destructors may check that. An
/// exception must not pass through the frames of libdispatch.
void runAndRelease(const void* state, std::function<void()>& step) noexcept {
    const RunningStep running(state);
    step();
    step = nullptr;
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
    const std::shared_ptr<State> state = _state;
    __block std::function<void()> kept = std::move(step);
    dispatch_async(state->queue, ^{
      runAndRelease(state.get(), kept);
    });
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
