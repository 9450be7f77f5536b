#pragma once

#include "platform/foundation/Data.h"
#include "platform/foundation/Error.h"

#include <string>
#include <string_view>
#include <vector>

/// Paths are bytes, as the file system takes them; a path with a zero byte names nothing. Links are followed
/// unless an operation says otherwise. Errors name the operation, the path and the system's reason.
namespace platform {

bool fileExists(const std::string& path);
bool isDirectory(const std::string& path);

/// Creates the folder and all that are missing above it. A folder that is there already is a success.
Outcome createDirectories(const std::string& path);

/// The names directly inside a folder, without "." and "..", in the order of the file system.
Result<std::vector<std::string>> namesInDirectory(const std::string& path);

/// All bytes of a file. Only regular files are read: a pipe or a device is an error, and so is a file of more
/// than `sizeLimit` bytes.
Result<Data> readFile(const std::string& path, std::uint64_t sizeLimit = UINT64_MAX);

/// Deletes one file, or the link itself.
Outcome removeFile(const std::string& path);

/// `path` without symbolic links, or `path` itself when it is relative or names nothing. A "/" at its end
/// stays.
std::string resolveSymbolicLinks(const std::string& path);

} // namespace platform
