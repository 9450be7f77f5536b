#include "platform/dispatch/RunLoop.h"

#include "platform/foundation/Assert.h"

#import <Foundation/Foundation.h>

#include <utility>

namespace platform {
namespace {

/// Runs `block` in the main run loop after the blocks that were added before.
void performInMainRunLoop(void (^block)()) {
    CFRunLoopPerformBlock(CFRunLoopGetMain(), kCFRunLoopCommonModes, block);
    CFRunLoopWakeUp(CFRunLoopGetMain());
}

} // namespace

RunLoop& RunLoop::mainRunLoop() {
    // Never destroyed, because other threads may post steps until the process ends.
    static RunLoop* const loop = [] {
        // A run loop without any source would not wait.
        [NSRunLoop.mainRunLoop addPort:[NSMachPort port] forMode:NSRunLoopCommonModes];
        return new RunLoop;
    }();
    return *loop;
}

bool RunLoop::run(Clock::duration limit) {
    if (!NSThread.isMainThread || std::exchange(_isRunning, true))
        abortWithMessage("The main run loop was run from another thread than the main one, or from one of "
                         "its own steps. Run it once, from main.\n");
    const struct Leave {
        bool& isRunning;
        ~Leave() { isRunning = false; }
    } leave{_isRunning};
    const Clock::time_point now = Clock::now();
    const Clock::time_point end =
        limit < Clock::time_point::max() - now ? now + limit : Clock::time_point::max();
    while (!takeStop()) {
        const std::chrono::duration<double> left = end - Clock::now();
        if (left.count() <= 0)
            return false;
        @autoreleasepool {
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, left.count(), /*returnAfterSourceHandled=*/true);
        }
    }
    return true;
}

void RunLoop::stop() {
    {
        const std::lock_guard lock(_mutex);
        _stopIsAsked = true;
    }
    // CFRunLoopStop has no effect on a loop that is about to start; a block is kept until it runs.
    performInMainRunLoop(^{
      CFRunLoopStop(CFRunLoopGetMain());
    });
}

void RunLoop::perform(std::function<void()> step) {
    performInMainRunLoop(^{
      // An exception must not pass through the frames of CFRunLoop.
      [&]() noexcept {
          step();
      }();
    });
}

bool RunLoop::takeStop() {
    const std::lock_guard lock(_mutex);
    return std::exchange(_stopIsAsked, false);
}

} // namespace platform
