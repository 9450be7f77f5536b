#include "platform/dispatch/RunLoop.h"

#import <Foundation/Foundation.h>

#include <algorithm>
#include <memory>
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
    static RunLoop* const loop = new RunLoop;
    return *loop;
}

bool RunLoop::turn(Clock::time_point end) {
    // The main run loop waits even without a source, because it serves the main dispatch queue.
    const std::chrono::duration<double> left = end - Clock::now();
    @autoreleasepool {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, std::max(left.count(), 0.0),
                           /*returnAfterSourceHandled=*/true);
    }
    return left.count() > 0;
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
    // Copying the block must not copy the captures: the loop destroys them, not the caller.
    const auto kept = std::make_shared<std::function<void()>>(std::exchange(step, nullptr));
    performInMainRunLoop(^{
      // An exception must not pass through the frames of CFRunLoop.
      [&]() noexcept {
          @autoreleasepool {
              std::exchange(*kept, nullptr)();
          }
      }();
    });
}

} // namespace platform
