#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The user's folders. None of them needs to exist. The home folder is $HOME if that is absolute, otherwise
/// the one of the user database, and "/" if there is none. On macOS, only the first two functions exist.
namespace platform {

/// Whether $HOME or the user database names a home folder.
bool hasHomeFolder();

/// The folder for caches. On macOS: ~/Library/Caches. On Linux: $XDG_CACHE_HOME if it is absolute, otherwise
/// ~/.cache.
std::string cachesFolder();

/// The folder for preferences. On Linux: $XDG_CONFIG_HOME if it is absolute, otherwise ~/.config.
std::string configurationFolder();

/// The folder for desktop files. On Linux: $XDG_DATA_HOME if it is absolute, otherwise ~/.local/share.
std::string dataFolder();

/// The absolute paths in an environment variable that contains a list separated by ":". `fallback` is used
/// if the variable is not set or empty.
std::vector<std::string> foldersInVariable(const char* variable, std::string_view fallback);

} // namespace platform
