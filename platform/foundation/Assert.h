#pragma once

#include <string>

namespace platform {

/// Prints `message`, which ends with a line break, to standard error and aborts the process. For faults of
/// the program itself, such as a call from the wrong thread. Any thread.
[[noreturn]] void abortWithMessage(const std::string& message);

/// Prints "Assertion failed: (expression), function f, file s." to standard error and aborts the process.
[[noreturn]] void assertionFailed(const char* expression, const char* function, const char* sourceFile);

} // namespace platform

/// Ends the process when `condition` is false, in release builds too. The caller passes the three texts of
/// the message, because they must not change when the code around the assertion changes.
#define PLATFORM_ASSERT(condition, expression, function, sourceFile)                                         \
    ((condition) ? static_cast<void>(0) : ::platform::assertionFailed(expression, function, sourceFile))
