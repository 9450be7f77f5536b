#pragma once

#include "platform/files/FileDescriptor.h"

#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <functional>
#include <string>

namespace ditto {

/// One file, folder or symbolic link of the tree that is archived.
struct SourceFile {
    /// For messages.
    std::string path;
    /// Below the folder that holds the tree: "App.dSYM/Contents/Info.plist". A folder's ends in "/".
    std::string archiveName;
    /// Kind and permissions, as stat(2) has them.
    mode_t mode = 0;
    timespec modificationTime = {};
    /// A regular file's, opened for reading, with its size at that time.
    platform::FileDescriptor descriptor = {};
    std::uint64_t size = 0;
    /// A symbolic link's.
    std::string linkTarget = {};
};

/// Hands `source` and all that is in it to `visit`, in the bytewise order of the archive names, each folder
/// before what it holds. `source` is a folder or a file, or a link to one; the first archive name is its last
/// component. Links inside are never followed, also when one takes a folder's place while the tree is
/// walked. Throws Failure at the first thing that cannot be read, and at sockets, pipes and devices, which no
/// archive can hold.
void walkTree(const std::string& source, const std::function<void(SourceFile)>& visit);

} // namespace ditto
