#include "platform/files/CopyItem.h"

#include "platform/foundation/Path.h"
#include "platform/foundation/macos/Bridge.h"

#include <cerrno>

namespace platform {

Outcome copyItem(const CopyPaths& paths) {
    @autoreleasepool {
        NSString* const source = stringFrom(paths.source);
        NSString* const destination = stringFrom(paths.destination);
        for (const std::string& path : {paths.source, paths.destination})
            if (path.empty() || hasZeroByte(path) || !source || !destination)
                return posixError(path.empty() ? ENOENT : EINVAL, "copy", path);
        NSError* error = nil;
        if ([NSFileManager.defaultManager copyItemAtPath:source toPath:destination error:&error])
            return success;
        return errorFrom(error);
    }
}

} // namespace platform
