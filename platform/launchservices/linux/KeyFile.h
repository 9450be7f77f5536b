#pragma once

#include "platform/foundation/Data.h"

#include <string>
#include <string_view>

/// Files of the form that the freedesktop "Desktop Entry Specification" describes: lines "key=value" in
/// groups that a line "[group]" begins. All other lines are comments here. Values are bytes, since paths are.
namespace platform {

/// The file's bytes; empty when `path` names no regular file, a binary one or one of more than 4 MiB. Does
/// not block.
Data readKeyFile(const std::string& path);

/// A value as it stands in the file, without the blanks around it; empty when there is none. Of several the
/// last counts. Valid as long as `file`.
std::string_view keyFileValue(const Data& file, std::string_view group, std::string_view key);

} // namespace platform
