#pragma once

#include "platform/foundation/Data.h"

#include <string>
#include <string_view>

/// Key files (freedesktop "Desktop Entry Specification"): lines "key=value" in groups that start with a line
/// "[group]". All other lines are ignored. Values are bytes, because they may contain paths.
namespace platform {

/// Reads a key file. Empty if `path` is not a regular file, contains a zero byte or is larger than 4 MiB.
/// Does not block.
Data readKeyFile(const std::string& path);

/// The value of a key, without surrounding blanks; empty if there is none or if it is longer than 16 KiB.
/// If a key occurs several times, the last value is used. Points into `file`.
std::string_view keyFileValue(const Data& file, std::string_view group, std::string_view key);

} // namespace platform
