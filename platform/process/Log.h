#pragma once

#include <string_view>

namespace platform {

/// The platform log call. Writes one record to standard error, in one write: a header of local date, time
/// with milliseconds, process name, process and thread id, then `message` as it stands, then one line break.
/// Records of processes that share a log do not mix. Never fails, and once SIGPIPE is ignored
/// (StandardStreams.h) never ends the process: what a closed, broken or full standard error does not take is
/// dropped. Any thread may call it, and the records of several threads do not mix either.
/// On macOS, NSLog makes the header, also gives the record to the system's log, and does not keep the records
/// of processes apart.
void log(std::string_view message);

/// Writes `text` to standard error, in one write and under the same promises as `log`.
void writeToStandardError(std::string_view text);

} // namespace platform
