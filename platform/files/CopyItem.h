#pragma once

#include "platform/foundation/Error.h"

#include <string>

namespace platform {

struct CopyPaths {
    std::string source;
    std::string destination;
};

/// Copies a file, a symbolic link or a folder with its contents to a path that does not exist yet. Keeps
/// permissions, modification times and holes. Does not follow links. Where the file system can share blocks
/// between files, no data is read or written. Does not keep owners, extended attributes and the set-user-ID
/// and set-group-ID bits. Pipes, sockets and devices are errors. An error names the file that could not be
/// copied; the files copied before it remain.
/// On macOS, NSFileManager copies: it keeps extended attributes, and the error is its own.
Outcome copyItem(const CopyPaths& paths);

} // namespace platform
