#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Operations on the text of paths. A path consists of bytes and need not be UTF-8.
namespace platform {

/// Whether `text` contains a zero byte. System calls would use only the part before it.
bool hasZeroByte(std::string_view text);

/// Joins `path` and `component` with one "/". Returns `component` if `path` is empty.
std::string pathByAppending(std::string_view path, std::string_view component);

/// The part of the last component after its last "."; empty if there is none or if nothing precedes it.
std::string_view pathExtension(std::string_view path);

/// The working directory, or null if it was deleted or is not accessible.
std::optional<std::string> currentDirectory();

} // namespace platform
