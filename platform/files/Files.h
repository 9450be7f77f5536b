#pragma once

#include "platform/foundation/Data.h"
#include "platform/foundation/Error.h"

#include <string>
#include <string_view>
#include <vector>

/// Paths are bytes. A path that contains a zero byte names no file. Operations follow links unless they say
/// otherwise. Errors name the operation, the path and the system's reason.
namespace platform {

/// Whether a file of any type is at `path`. False for a link whose target is missing.
bool fileExists(const std::string& path);
/// Whether `path` is a folder or a link to one.
bool isDirectory(const std::string& path);

/// Creates the folder and all missing folders above it. Succeeds if it exists.
Outcome createDirectories(const std::string& path);

/// The names of the entries of a folder, without "." and "..", in the order of the file system.
Result<std::vector<std::string>> namesInDirectory(const std::string& path);

/// Reads a whole regular file. Any other type of file is an error, and so is a file of more than `sizeLimit`
/// bytes. Returns no bytes for files whose size the system reports as 0, such as those in /proc.
Result<Data> readFile(const std::string& path, std::uint64_t sizeLimit = UINT64_MAX);

/// Maps a regular file, so that a large file takes no memory from other programs. The file may be deleted
/// afterwards. If another program truncates it, a read of the lost bytes raises SIGBUS (see
/// exitIfAMappedFileIsTruncated). A file that cannot be mapped, such as an empty one, is read.
Result<Data> mapFile(const std::string& path);

/// Deletes a file or a link (not its target).
Outcome removeFile(const std::string& path);

/// `path` with all symbolic links resolved. Returns `path` if it is relative or does not exist. Keeps a "/"
/// at the end.
std::string resolveSymbolicLinks(const std::string& path);

} // namespace platform
