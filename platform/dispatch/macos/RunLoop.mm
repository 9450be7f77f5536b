#include "platform/dispatch/RunLoop.h"

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

bool RunLoop::turn(Clock::time_point end) {
    const std::chrono::duration<double> left = end - Clock::now();
    if (left.count() <= 0)
        return false;
    @autoreleasepool {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, left.count(), /*returnAfterSourceHandled=*/true);
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

} // namespace platform
