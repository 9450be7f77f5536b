#pragma once

#include <string>

/// The user's own folders (XDG base directories). None of them is created.
namespace platform {

/// $HOME when it is absolute, else the user database's word; "/" when neither knows.
std::string homeFolder();

/// $XDG_CACHE_HOME when it is absolute, else ".cache" in the home folder.
std::string cachesFolder();

/// $XDG_CONFIG_HOME when it is absolute, else ".config" in the home folder.
std::string configurationFolder();

} // namespace platform
