#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Paths as text: bytes, as the file system takes them.
namespace platform {

/// Whether the system would take only a part of `text`: what stands before the zero byte.
bool hasZeroByte(std::string_view text);

/// `path` with one "/" between it and `component`; `component` itself when `path` is empty.
std::string pathByAppending(std::string_view path, std::string_view component);

/// The part of the last component behind its last "."; empty when there is none, or nothing before it.
std::string_view pathExtension(std::string_view path);

/// The folder that the process works in, or nothing when it has been deleted or may not be known.
std::optional<std::string> currentDirectory();

} // namespace platform
