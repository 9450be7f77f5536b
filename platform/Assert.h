#pragma once

namespace platform {

/// Prints "Assertion failed: (expression), function f, file s." to standard error and aborts the process.
[[noreturn]] void assertionFailed(const char* expression, const char* function, const char* sourceFile);

} // namespace platform

/// Ends the process when `condition` is false, in release builds too. The three texts are what the failure
/// prints; they are given apart from the condition because they stay the same whatever the code around looks
/// like.
#define TWL_ASSERT(condition, expression, function, sourceFile)                                              \
    ((condition) ? static_cast<void>(0) : ::platform::assertionFailed(expression, function, sourceFile))
