#include "platform/RunLoop.h"

#include "platform/Error.h"
#include "platform/FileDescriptor.h"
#include "platform/Log.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace platform {
namespace {

// Static objects are made before main, on the thread that will run it.
const std::thread::id mainThread = std::this_thread::get_id();

void makeNonBlocking(const FileDescriptor& descriptor) {
    if (fcntl(descriptor.get(), F_SETFD, FD_CLOEXEC) != 0 ||
        fcntl(descriptor.get(), F_SETFL, O_NONBLOCK) != 0)
        throw std::system_error(errno, std::generic_category(), "run loop: fcntl");
}

} // namespace

struct RunLoop::State {
    using Clock = RunLoop::Clock;
    using Ready = std::function<void(Interest)>;
    struct Watch {
        Interest interest;
        std::shared_ptr<const Ready> ready;
    };
    struct Timer {
        Clock::time_point due;
        std::function<void()> fire;
    };

    State() {
        int ends[2];
        if (::pipe(ends) != 0)
            throw std::system_error(errno, std::generic_category(), "run loop: pipe");
        wakeReader = FileDescriptor(ends[0]);
        wakeWriter = FileDescriptor(ends[1]);
        makeNonBlocking(wakeReader);
        makeNonBlocking(wakeWriter);
    }

    void wake() const {
        // A full pipe wakes as well, so the result does not matter.
        [[maybe_unused]] const ssize_t written = ::write(wakeWriter.get(), "", 1);
    }

    bool takeStop() {
        const std::lock_guard lock(mutex);
        return std::exchange(stopIsAsked, false);
    }

    /// Runs one posted step; false when there is none.
    bool runStep() {
        std::function<void()> step;
        {
            const std::lock_guard lock(mutex);
            if (steps.empty())
                return false;
            step = std::move(steps.front());
            steps.pop_front();
        }
        step();
        return true;
    }

    bool fireTimer(Clock::time_point now) {
        for (auto timer = timers.begin(); timer != timers.end(); ++timer) {
            if (timer->second.due > now)
                continue;
            const std::function<void()> fire = std::move(timer->second.fire);
            timers.erase(timer);
            fire();
            return true;
        }
        return false;
    }

    void wait(Clock::time_point end) {
        for (const auto& [owner, timer] : timers)
            end = std::min(end, timer.due);
        std::vector<pollfd> polled = {{wakeReader.get(), POLLIN, 0}};
        for (const auto& [descriptor, watch] : watches) {
            const int events = (watch.interest.read ? POLLIN : 0) | (watch.interest.write ? POLLOUT : 0);
            polled.push_back({descriptor, static_cast<short>(events), 0});
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        const auto timeout = static_cast<int>(std::clamp<std::int64_t>(left, 0, 60'000));
        if (::poll(polled.data(), polled.size(), timeout) <= 0)
            return;
        char drained[64];
        while (::read(wakeReader.get(), drained, sizeof drained) > 0) {
        }
        for (const pollfd& one : polled)
            tell(one);
    }

    void tell(const pollfd& polled) {
        // An earlier one of the same round may have removed it.
        const auto watch = watches.find(polled.fd);
        if (polled.revents == 0 || watch == watches.end())
            return;
        const bool failed = (polled.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
        const std::shared_ptr<const Ready> ready = watch->second.ready;
        (*ready)({failed || (polled.revents & POLLIN) != 0, failed || (polled.revents & POLLOUT) != 0});
    }

    std::mutex mutex;
    std::deque<std::function<void()>> steps;
    bool stopIsAsked = false;

    // Only the main thread touches what follows.
    FileDescriptor wakeReader;
    FileDescriptor wakeWriter;
    std::map<int, Watch> watches;
    std::map<const void*, Timer> timers;
    bool isRunning = false;
};

RunLoop::RunLoop() : _state(std::make_unique<State>()) {}
RunLoop::~RunLoop() = default;

RunLoop& RunLoop::mainRunLoop() {
    // Never destroyed: other threads may post to it until the process has ended.
    static RunLoop* const loop = new RunLoop;
    return *loop;
}

bool RunLoop::run(Clock::duration limit) {
    if (std::this_thread::get_id() != mainThread || std::exchange(_state->isRunning, true)) {
        writeToStandardError(
            "The main run loop was run from another thread than the main one, or from one of "
            "its own steps. Run it once, from main.\n");
        std::abort();
    }
    const struct Leave {
        bool& isRunning;
        ~Leave() { isRunning = false; }
    } leave{_state->isRunning};
    const Clock::time_point now = Clock::now();
    const Clock::time_point end =
        limit < Clock::time_point::max() - now ? now + limit : Clock::time_point::max();
    while (!_state->takeStop()) {
        if (_state->runStep() || _state->fireTimer(Clock::now()))
            continue;
        if (Clock::now() >= end)
            return false;
        _state->wait(end);
    }
    return true;
}

void RunLoop::stop() {
    {
        const std::lock_guard lock(_state->mutex);
        _state->stopIsAsked = true;
    }
    _state->wake();
}

void RunLoop::perform(std::function<void()> step) {
    {
        const std::lock_guard lock(_state->mutex);
        _state->steps.push_back(std::move(step));
    }
    _state->wake();
}

void RunLoop::setDescriptor(int descriptor, Interest interest, std::function<void(Interest)> ready) {
    if (interest.read || interest.write)
        _state->watches[descriptor] = {interest, std::make_shared<const State::Ready>(std::move(ready))};
    else
        _state->watches.erase(descriptor);
}

void RunLoop::setTimer(const void* owner, Clock::duration delay, std::function<void()> fire) {
    _state->timers[owner] = {Clock::now() + delay, std::move(fire)};
}

void RunLoop::removeTimer(const void* owner) {
    _state->timers.erase(owner);
}

} // namespace platform
