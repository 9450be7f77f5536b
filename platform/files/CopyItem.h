#pragma once

#include "platform/foundation/Error.h"

#include <string>

namespace platform {

struct CopyPaths {
    std::string source;
    std::string destination;
};

/// Copies a file, a link, or a folder with everything inside it, to a path where nothing is yet. Permissions,
/// modification times and holes are kept; symbolic links are copied as links and never followed. Where the
/// file system can share blocks between files, nothing is read or written. Owners, extended attributes and
/// the bits that run a program as its owner are not kept; pipes, sockets and devices are errors. On an error,
/// which names the file that could not be copied, what has been copied stays.
Outcome copyItem(const CopyPaths& paths);

} // namespace platform
