#pragma once

namespace platform {

/// Installs a signal handler that ends the process with a message and status 1 if a mapped file is read
/// beyond its end. That happens when another program truncates the file. On macOS, a write to protected
/// memory has the same effect, because it raises the same signal.
void exitIfAMappedFileIsTruncated();

} // namespace platform
