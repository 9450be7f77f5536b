#pragma once

namespace platform {

/// From now on, reading a mapped file behind the end that another program has meanwhile given it ends the
/// process with status 1 and a sentence on standard error, not with a core dump. macOS does not tell it from
/// a write to protected memory, which ends the process in the same way.
void endWhenAMappedFileIsCutShort();

} // namespace platform
