#pragma once

namespace platform {

/// From now on, reading a mapped file behind the end that another program has meanwhile given it ends the
/// process with status 1 and a sentence on standard error, not with a core dump.
void endWhenAMappedFileIsCutShort();

} // namespace platform
