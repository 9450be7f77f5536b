#pragma once

#include "platform/foundation/Format.h"
#include "platform/process/Log.h"

#include <string>
#include <string_view>

namespace orvane {

/// Whether debug-only lines are printed. False at start, set at most once, before any other thread exists.
bool debugMode();
void setDebugMode();

/// Logs `message` behind the product tag, as "\n\nOrvane: %@".
void logWithTag(std::string_view message);

/// The tool's logging call: formats the arguments ("%@" an object's description, "%i" and "%d" integers) and
/// logs the text behind the product tag. It does not look at `debugMode`. Any thread may call it.
template <class... Args>
void TWLLog(std::type_identity_t<platform::FormatString<Args...>> format, const Args&... arguments) {
    logWithTag(platform::format<Args...>(format, arguments...));
}

/// TWLLog in debug mode; else nothing.
template <class... Args>
void logDebug(std::type_identity_t<platform::FormatString<Args...>> format, const Args&... arguments) {
    if (debugMode())
        TWLLog<Args...>(format, arguments...);
}

/// The platform log call with a format and without the tag.
template <class... Args>
void NSLog(std::type_identity_t<platform::FormatString<Args...>> format, const Args&... arguments) {
    platform::log(platform::format<Args...>(format, arguments...));
}

/// Logs title and reason and ends the process as exitWithFailure does.
[[noreturn]] void failWithTitleAndReason(std::string_view title, std::string_view reason);

/// Ends the whole process with status 1 at once, after the caller has logged why. Any thread may call it. No
/// destructor and no handler of std::atexit runs, and buffers of standard streams are not written. Files
/// written so far stay.
[[noreturn]] void exitWithFailure();

} // namespace orvane
