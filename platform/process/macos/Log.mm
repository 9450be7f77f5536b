#include "platform/process/Log.h"

#include "platform/foundation/UTF8.h"
#include "platform/foundation/macos/Bridge.h"

#include <unistd.h>

#include <cerrno>

namespace platform {

// A signal handler calls it: nothing of Foundation may be used here.
void writeToStandardError(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
        if (written >= 0)
            text.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return;
    }
}

void log(std::string_view message) {
    @autoreleasepool {
        NSLog(@"%@", stringFrom(validUTF8(message)));
    }
}

} // namespace platform
