#include "platform/files/UserFolders.h"

#include "platform/foundation/macos/Bridge.h"

namespace platform {

bool hasHomeFolder() {
    @autoreleasepool {
        return NSHomeDirectory().length > 0;
    }
}

std::string cachesFolder() {
    @autoreleasepool {
        NSArray<NSString*>* const folders =
            NSSearchPathForDirectoriesInDomains(NSCachesDirectory, NSUserDomainMask, YES);
        return textFrom(folders.firstObject ?: NSHomeDirectory());
    }
}

} // namespace platform
