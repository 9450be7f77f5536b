#pragma once

#include <string>

/// The user's own folders (XDG base directories). None of them is created. The home folder is $HOME when that
/// is absolute, else the user database's word, and "/" when neither knows.
namespace platform {

/// $XDG_CACHE_HOME when it is absolute, else ".cache" in the home folder.
std::string cachesFolder();

/// $XDG_CONFIG_HOME when it is absolute, else ".config" in the home folder.
std::string configurationFolder();

} // namespace platform
