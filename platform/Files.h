#pragma once

#include "platform/Data.h"
#include "platform/Error.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Paths are bytes, as the file system takes them; a path with a zero byte names nothing. Links are followed
/// unless an operation says otherwise. Errors name the operation, the path and the system's reason.
namespace platform {

/// Whether the system would take only a part of `text`: what stands before the zero byte.
bool hasZeroByte(std::string_view text);

bool fileExists(const std::string& path);
bool isDirectory(const std::string& path);

/// Creates the folder and all that are missing above it. A folder that is there already is a success.
Outcome createDirectories(const std::string& path);

/// The names directly inside a folder, without "." and "..", in the order of the file system.
Result<std::vector<std::string>> namesInDirectory(const std::string& path);

/// All bytes of a file. Only regular files are read: a pipe or a device is an error, and so is a file of more
/// than `sizeLimit` bytes.
Result<Data> readFile(const std::string& path, std::uint64_t sizeLimit = UINT64_MAX);

/// Puts `bytes` at `path` so that readers find what was there before or all of `bytes`, never less, whenever
/// this process is ended. Links at `path` are followed. Any path will do at which a file can be created.
/// Fails on anything at `path` that is no regular file, and leaves no other file behind when it fails. A file
/// that is there keeps its permissions; a new one gets `permissions`, as chmod(2) writes them, less the
/// process's mask.
Outcome writeFileAtomically(const std::string& path, std::string_view bytes, unsigned permissions = 0666);

/// Deletes one file, or the link itself.
Outcome removeFile(const std::string& path);

/// `path` with one "/" between it and `component`; `component` itself when `path` is empty.
std::string pathByAppending(std::string_view path, std::string_view component);

/// The part of the last component behind its last "."; empty when there is none, or nothing before it.
std::string_view pathExtension(std::string_view path);

/// `path` without symbolic links, or `path` itself when it is relative or names nothing. A "/" at its end
/// stays.
std::string resolveSymbolicLinks(const std::string& path);

/// The folder that the process works in, or nothing when it has been deleted or may not be known.
std::optional<std::string> currentDirectory();

} // namespace platform
