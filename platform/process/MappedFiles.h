#pragma once

namespace platform {

/// Installs a handler for reads of a mapped file beyond its end, which happen when another program truncates
/// the file. It ends the process with a message and status 1 instead of a crash. On macOS, a write to
/// protected memory has the same effect, because the signal is the same.
void exitIfAMappedFileIsTruncated();

} // namespace platform
