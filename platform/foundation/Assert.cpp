#include "platform/foundation/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace platform {

void abortWithMessage(const std::string& message) {
    // Standard error has no buffer, so this is one write.
    std::fwrite(message.data(), 1, message.size(), stderr);
    std::abort();
}

void assertionFailed(const char* expression, const char* function, const char* sourceFile) {
    abortWithMessage(std::string("Assertion failed: (") + expression + "), function " + function + ", file " +
                     sourceFile + ".\n");
}

} // namespace platform
