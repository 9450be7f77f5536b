#pragma once

namespace platform {

/// Installs a signal handler that ends the process with a message and status 1 if a mapped file is read
/// beyond its end, because another program truncated the file. On macOS, a write to protected
/// memory has the same effect, because it raises the same signal.
void exitIfAMappedFileIsTruncated();

} // namespace platform
