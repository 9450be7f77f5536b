#include "platform/Assert.h"

#include "platform/Log.h"

#include <cstdlib>
#include <string>

namespace platform {

void assertionFailed(const char* expression, const char* function, const char* sourceFile) {
    writeToStandardError(std::string("Assertion failed: (") + expression + "), function " + function +
                         ", file " + sourceFile + ".\n");
    std::abort();
}

} // namespace platform
