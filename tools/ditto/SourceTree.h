#pragma once

#include "platform/files/FileDescriptor.h"

#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <functional>
#include <string>

namespace ditto {

/// A file, folder or symbolic link of the tree.
struct SourceFile {
    /// For messages.
    std::string path;
    /// The name in the archive: "App.dSYM/Contents/Info.plist". The name of a folder ends with "/".
    std::string archiveName;
    /// Type and permissions (stat(2)).
    mode_t mode = 0;
    timespec modificationTime = {};
    /// For a regular file: open for reading, and its size at that time.
    platform::FileDescriptor descriptor = {};
    std::uint64_t size = 0;
    /// The target of a symbolic link.
    std::string linkTarget = {};
};

/// Calls `visit` for `source` and its contents, in the bytewise order of the archive names, folders before
/// their contents. `source` is a folder, a file, or a link to one; the first archive name is its last
/// component. Links inside the tree are not followed, even if one replaces a folder during the walk. Throws
/// Failure if something cannot be read, and for sockets, pipes and devices, which an archive cannot contain.
void walkTree(const std::string& source, const std::function<void(SourceFile)>& visit);

} // namespace ditto
