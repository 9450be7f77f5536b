#pragma once

#include "platform/foundation/Error.h"

#include <string>
#include <string_view>

namespace platform {

/// Replaces the contents of the file at `path` by `bytes`. A reader finds the old or the new contents, never
/// a part, even if this process is killed. Follows links. Works for every path at which a file can be
/// created. Fails if `path` is not a regular file, and leaves no temporary file after a failure. An existing
/// file keeps its permissions; a new one gets `permissions` (as for chmod(2)) without those of the process's
/// umask.
Outcome writeFileAtomically(const std::string& path, std::string_view bytes, unsigned permissions = 0666);

} // namespace platform
