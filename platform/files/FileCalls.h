#pragma once

#include "platform/files/FileDescriptor.h"

#include <dirent.h>
#include <sys/stat.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// System calls on files. `name` is relative to the open folder `folder`; AT_FDCWD is the working directory.
namespace platform {

/// Opens a file for reading, with `flags` added to those of open(2), and stores its status. Any type of file
/// can be opened; a pipe does not block. On failure returns no descriptor and sets errno.
FileDescriptor openToRead(int folder, const std::string& name, struct stat& status, int flags = 0);

/// Calls `visit` for the entries of a folder except "." and "..". `folder` must be open for reading and can
/// be listed once. Returns 0 or the number of the error.
int listFolder(const FileDescriptor& folder, const std::function<void(const dirent&)>& visit);

/// The target of a symbolic link. Null, with errno set, if it cannot be read.
std::optional<std::string> linkTarget(int folder, const std::string& name);

/// The absolute path without links, "." and "..". Null, with errno set, if the file does not exist.
std::optional<std::string> realPath(const std::string& path);

/// Reads `size` bytes at `offset`, fewer at the end of the file. Returns their number, or -1 with errno set.
ssize_t preadAll(const FileDescriptor& file, void* buffer, std::size_t size, off_t offset);

/// Writes all of `bytes` at `offset`. Returns 0 or the number of the error.
int pwriteAll(const FileDescriptor& file, std::string_view bytes, off_t offset);

} // namespace platform
