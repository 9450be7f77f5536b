#pragma once

#include <string_view>

namespace platform {

/// Writes one record to standard error, in one write: date and time with milliseconds (local), process name,
/// process and thread id, `message`, and a line break unless `message` ends with one. Records of several
/// threads or processes do not mix.
/// Never fails. Once SIGPIPE is ignored (StandardStreams.h) it does not end the process either: text that a
/// closed or full standard error does not accept is dropped. Any thread.
///
/// On macOS, NSLog formats the record and sends it to the system's log too. Records of several processes may
/// mix.
void log(std::string_view message);

/// Writes `text` to standard error. Like `log`, it never fails; any thread.
void writeToStandardError(std::string_view text);

} // namespace platform
