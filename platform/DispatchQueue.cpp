#include "platform/DispatchQueue.h"

#include "platform/Format.h"
#include "platform/Log.h"

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace platform {
namespace {

using Step = std::function<void()>;

/// The threads behind all queues.
class Pool {
public:
    static Pool& shared() {
        // Never destroyed, because queues may be used until the very end; only its threads end with the
        // process.
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

    /// Whether the calling thread is one of these.
    static inline thread_local bool isWorker = false;

    /// Counts a thread of the pool out (-1) while it waits for a queue, and in again (1): what it waits for
    /// may itself need a thread, or have been dropped.
    void count(std::ptrdiff_t threads) {
        const std::lock_guard lock(_mutex);
        _present += threads;
        startThreadIfNeeded();
        _someoneLeft.notify_all();
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
            // The threads that there are will get to the step.
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
        _someoneLeft.notify_all();
    }

    void close() {
        std::deque<Step> dropped;
        std::unique_lock lock(_mutex);
        _closed = true;
        dropped.swap(_steps);
        _wake.notify_all();
        // A step may itself have called exit.
        _someoneLeft.wait(lock, [this] { return _present == (isWorker ? 1 : 0); });
        for (std::thread& thread : _threads)
            thread.detach();
        lock.unlock();
    }

    std::mutex _mutex;
    std::condition_variable _wake;
    std::condition_variable _someoneLeft;
    std::deque<Step> _steps;
    std::vector<std::thread> _threads;
    /// Those of `_threads` that neither wait for a queue nor have ended.
    std::ptrdiff_t _present = 0;
    std::size_t _idle = 0;
    bool _closed = false;
};

} // namespace

class DispatchQueue::State : public std::enable_shared_from_this<State> {
public:
    State(std::string label, bool isSerial) : _label(std::move(label)), _isSerial(isSerial) {}

    const std::string& label() const { return _label; }

    void async(Step step) {
        if (!_isSerial) {
            Pool::shared().submit(
                [self = shared_from_this(), step = std::move(step)]() mutable { self->runAndRelease(step); });
            return;
        }
        const std::lock_guard lock(_mutex);
        _waiting.push_back({std::move(step), nullptr});
        if (!std::exchange(_isOwned, true))
            passOn();
    }

    void sync(const Step& step) {
        const auto run = [&] {
            const Frame frame(this);
            step();
        };
        if (!_isSerial)
            return run();
        if (isCurrent())
            refuse();
        acquire();
        const struct Release {
            State& state;
            ~Release() {
                const std::lock_guard lock(state._mutex);
                state.passOn();
            }
        } release{*this};
        run();
    }

    bool isCurrent() const {
        for (const Frame* frame = Frame::innermost; frame; frame = frame->outer)
            if (frame->queue == this)
                return true;
        return false;
    }

    static std::string currentLabel() { return Frame::innermost ? Frame::innermost->queue->label() : ""; }

private:
    /// The queues whose steps the thread is in, innermost first.
    struct Frame {
        explicit Frame(const State* state) : queue(state), outer(innermost) { innermost = this; }
        ~Frame() { innermost = outer; }
        Frame(const Frame&) = delete;
        Frame& operator=(const Frame&) = delete;

        const State* queue;
        Frame* outer;
        static thread_local Frame* innermost;
    };
    /// A thread that waits for its turn to own the queue.
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

    /// What the step holds goes while it still counts as running: that may be the last hold on an object
    /// which uses this queue when it goes.
    void runAndRelease(Step& step) const {
        const Frame frame(this);
        step();
        step = nullptr;
    }

    void acquire() {
        std::unique_lock lock(_mutex);
        if (!std::exchange(_isOwned, true))
            return;
        Waiter waiter;
        _waiting.push_back({nullptr, &waiter});
        if (waiter.isWorker)
            Pool::shared().count(-1);
        waiter.wake.wait(lock, [&] { return waiter.isOwner; });
    }

    /// Gives the queue, which the caller owns, to whoever is next. Under the lock.
    void passOn() {
        if (_waiting.empty()) {
            _isOwned = false;
        } else if (Waiter* const waiter = _waiting.front().waiter) {
            _waiting.pop_front();
            waiter->isOwner = true;
            if (waiter->isWorker)
                Pool::shared().count(1);
            waiter->wake.notify_one();
        } else {
            Pool::shared().submit([self = shared_from_this()] { self->drain(); });
        }
    }

    void drain() {
        std::unique_lock lock(_mutex);
        while (!_waiting.empty() && !_waiting.front().waiter) {
            Step step = std::move(_waiting.front().step);
            _waiting.pop_front();
            lock.unlock();
            runAndRelease(step);
            lock.lock();
        }
        passOn();
    }

    [[noreturn]] void refuse() const {
        writeToStandardError(
            format("A step of the queue %@ waits for the same queue, which would never end. Start "
                   "the work asynchronously, or from outside the queue.\n",
                   _label));
        std::abort();
    }

    const std::string _label;
    const bool _isSerial;
    std::mutex _mutex;
    std::deque<Entry> _waiting;
    bool _isOwned = false;
};

thread_local DispatchQueue::State::Frame* DispatchQueue::State::Frame::innermost = nullptr;

DispatchQueue DispatchQueue::serial(std::string label) {
    return DispatchQueue(std::make_shared<State>(std::move(label), true));
}

const DispatchQueue& DispatchQueue::global() {
    static const DispatchQueue* const queue =
        new DispatchQueue(std::make_shared<State>("global.default-priority", false));
    return *queue;
}

const std::string& DispatchQueue::label() const {
    return _state->label();
}

void DispatchQueue::async(std::function<void()> step) const {
    _state->async(std::move(step));
}

void DispatchQueue::sync(const std::function<void()>& step) const {
    _state->sync(step);
}

bool DispatchQueue::isCurrent() const {
    return _state->isCurrent();
}

std::string DispatchQueue::currentLabel() {
    return State::currentLabel();
}

} // namespace platform
