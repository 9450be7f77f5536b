#include "platform/dispatch/RunLoop.h"

#include "platform/foundation/Assert.h"

#include <thread>
#include <utility>

namespace platform {

// Static objects are initialized before main, on the main thread.
static const std::thread::id mainThread = std::this_thread::get_id();

bool RunLoop::run(Clock::duration limit) {
    if (std::this_thread::get_id() != mainThread || std::exchange(_isRunning, true)) {
        abortWithMessage("The main run loop was run from another thread than the main one, or from one of "
                         "its own steps. Run it once, from main.\n");
    }
    const struct Leave {
        bool& isRunning;
        ~Leave() { isRunning = false; }
    } leave{_isRunning};
    const Clock::time_point now = Clock::now();
    const Clock::time_point end =
        limit < Clock::time_point::max() - now ? now + limit : Clock::time_point::max();
    while (!takeStop())
        if (!turn(end))
            return takeStop();
    return true;
}

bool RunLoop::takeStop() {
    const std::lock_guard lock(_mutex);
    return std::exchange(_stopIsAsked, false);
}

} // namespace platform
