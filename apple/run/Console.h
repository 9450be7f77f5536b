#pragma once

#include "platform/foundation/Format.h"
#include "platform/process/Log.h"

#include <string>
#include <string_view>

namespace orvane {

/// Whether debug lines are printed. Set at most once, before other threads exist.
bool debugMode();
void setDebugMode();

/// Logs `message` with the product's name, as "\n\nOrvane: %@".
void logWithTag(std::string_view message);

/// Formats the arguments ("%@" an object's description, "%i" and "%d" integers) and logs the text with the
/// product's name. Any thread.
template <class... Args>
void TWLLog(std::type_identity_t<platform::FormatString<Args...>> format, const Args&... arguments) {
    logWithTag(platform::format<Args...>(format, arguments...));
}

/// TWLLog, in debug mode only.
template <class... Args>
void logDebug(std::type_identity_t<platform::FormatString<Args...>> format, const Args&... arguments) {
    if (debugMode())
        TWLLog<Args...>(format, arguments...);
}

/// The platform's log call with a format, without the product's name.
template <class... Args>
void NSLog(std::type_identity_t<platform::FormatString<Args...>> format, const Args&... arguments) {
    platform::log(platform::format<Args...>(format, arguments...));
}

/// Logs title and reason, then calls exitWithFailure.
[[noreturn]] void failWithTitleAndReason(std::string_view title, std::string_view reason);

/// Ends the process with status 1. Any thread. Does not run destructors and std::atexit handlers, and does
/// not write buffers of standard streams. Files written so far remain. The caller has logged the reason.
[[noreturn]] void exitWithFailure();

} // namespace orvane
