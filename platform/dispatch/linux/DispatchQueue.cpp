#include "platform/dispatch/DispatchQueue.h"

#include "platform/dispatch/RunningStep.h"
#include "platform/foundation/Assert.h"
#include "platform/foundation/Format.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace platform {
namespace {

using Step = std::function<void()>;

/// The threads that run the asynchronous steps of all queues.
class Pool {
public:
    static Pool& shared() {
        // Never destroyed, because other static objects may use queues in their destructors.
        static Pool* const pool = new Pool;
        static const struct Closing {
            ~Closing() { pool->close(); }
        } closing;
        return *pool;
    }

    void submit(Step step) {
        const std::lock_guard lock(_mutex);
        if (_closed)
            return;
        _steps.push_back(std::move(step));
        startThreadIfNeeded();
        _wake.notify_one();
    }

    /// Whether the calling thread belongs to the pool.
    static inline thread_local bool isWorker = false;

    /// Changes the number of threads that count towards the limit. A thread that waits for a queue does not
    /// count, because the step that it waits for may itself need a thread.
    void count(std::ptrdiff_t threads) {
        const std::lock_guard lock(_mutex);
        _present += threads;
        startThreadIfNeeded();
        _changed.notify_all();
    }

private:
    static constexpr std::ptrdiff_t presentLimit = 64;

    void startThreadIfNeeded() {
        if (_closed || _steps.size() <= _idle || _present >= presentLimit)
            return;
        try {
            _threads.emplace_back([this] { work(); });
            ++_present;
        } catch (const std::system_error&) {
            // The existing threads will run the step later.
            if (_threads.empty())
                throw;
        }
    }

    void work() {
        isWorker = true;
        std::unique_lock lock(_mutex);
        while (true) {
            ++_idle;
            _wake.wait(lock, [this] { return _closed || !_steps.empty(); });
            --_idle;
            if (_closed)
                break;
            Step step = std::move(_steps.front());
            _steps.pop_front();
            lock.unlock();
            [&]() noexcept {
                step();
            }();
            step = nullptr;
            lock.lock();
        }
        --_present;
        _changed.notify_all();
    }

    void close() {
        std::deque<Step> dropped;
        std::unique_lock lock(_mutex);
        _closed = true;
        dropped.swap(_steps);
        _wake.notify_all();
        // If a step called exit, the caller is itself a thread of the pool.
        _changed.wait(lock, [this] { return _present == (isWorker ? 1 : 0); });
        for (std::thread& thread : _threads)
            thread.detach();
        lock.unlock();
    }

    std::mutex _mutex;
    std::condition_variable _wake;
    std::condition_variable _changed;
    std::deque<Step> _steps;
    std::vector<std::thread> _threads;
    /// The threads that neither wait for a queue nor have ended.
    std::ptrdiff_t _present = 0;
    std::size_t _idle = 0;
    bool _closed = false;
};

} // namespace

struct DispatchQueue::State : std::enable_shared_from_this<State> {
    State(std::string name, bool serial) : label(std::move(name)), isSerial(serial) {}

    /// A thread that waits until it owns the queue.
    struct Waiter {
        std::condition_variable wake;
        const bool isWorker = Pool::isWorker;
        bool isOwner = false;
    };
    /// An asynchronous step, or a waiter.
    struct Entry {
        Step step;
        Waiter* waiter;
    };

    /// Destroys the captures before the step counts as finished. They may own the last reference to an object
    /// whose destructor checks whether it runs on this queue.
    void runAndRelease(Step& step) const {
        const RunningStep running(this);
        step();
        step = nullptr;
    }

    /// Waits until the caller owns the queue. The caller must call `release`.
    State* acquire() {
        std::unique_lock lock(mutex);
        if (!std::exchange(isOwned, true))
            return this;
        Waiter waiter;
        waiting.push_back({nullptr, &waiter});
        if (waiter.isWorker)
            Pool::shared().count(-1);
        waiter.wake.wait(lock, [&] { return waiter.isOwner; });
        return this;
    }

    static void release(State* state) {
        const std::lock_guard lock(state->mutex);
        state->passOn();
    }

    /// Passes the queue from the caller to the next waiting thread or step. Requires the lock.
    void passOn() {
        if (waiting.empty()) {
            isOwned = false;
        } else if (Waiter* const waiter = waiting.front().waiter) {
            waiting.pop_front();
            waiter->isOwner = true;
            if (waiter->isWorker)
                Pool::shared().count(1);
            waiter->wake.notify_one();
        } else {
            Pool::shared().submit([self = shared_from_this()] { self->drain(); });
        }
    }

    void drain() {
        std::unique_lock lock(mutex);
        while (!waiting.empty() && !waiting.front().waiter) {
            Step step = std::move(waiting.front().step);
            waiting.pop_front();
            lock.unlock();
            runAndRelease(step);
            lock.lock();
        }
        passOn();
    }

    const std::string label;
    const bool isSerial;
    std::mutex mutex;
    std::deque<Entry> waiting;
    bool isOwned = false;
};

DispatchQueue DispatchQueue::serial(std::string label) {
    return DispatchQueue(std::make_shared<State>(std::move(label), true));
}

const DispatchQueue& DispatchQueue::global() {
    static const DispatchQueue* const queue =
        new DispatchQueue(std::make_shared<State>("global.default-priority", false));
    return *queue;
}

const std::string& DispatchQueue::label() const {
    return _state->label;
}

void DispatchQueue::async(std::function<void()> step) const {
    if (!_state->isSerial) {
        Pool::shared().submit(
            [state = _state, step = std::move(step)]() mutable { state->runAndRelease(step); });
        return;
    }
    const std::lock_guard lock(_state->mutex);
    _state->waiting.push_back({std::move(step), nullptr});
    if (!std::exchange(_state->isOwned, true))
        _state->passOn();
}

void DispatchQueue::sync(const std::function<void()>& step) const {
    if (_state->isSerial && isCurrent()) {
        abortWithMessage(
            format("A step of the queue %@ waits for the same queue, which would never end. Start "
                   "the work asynchronously, or from outside the queue.\n",
                   label()));
    }
    const std::unique_ptr<State, void (*)(State*)> owned(_state->isSerial ? _state->acquire() : nullptr,
                                                         &State::release);
    const RunningStep running(_state.get());
    step();
}

bool DispatchQueue::isCurrent() const {
    return RunningStep::isIn(_state.get());
}

} // namespace platform
