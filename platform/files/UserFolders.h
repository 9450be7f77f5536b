#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The user's own folders (XDG base directories). None of them is created. The home folder is $HOME when that
/// is absolute, else the one of the user database, and "/" when neither names one.
namespace platform {

/// Whether $HOME or the user database names a home folder.
bool hasHomeFolder();

/// $XDG_CACHE_HOME when it is absolute, else ".cache" in the home folder.
std::string cachesFolder();

/// $XDG_CONFIG_HOME when it is absolute, else ".config" in the home folder.
std::string configurationFolder();

/// $XDG_DATA_HOME when it is absolute, else ".local/share" in the home folder.
std::string dataFolder();

/// The absolute paths in an environment variable that lists folders with ":" between them. `fallback` is read
/// in place of a variable that is not set or empty.
std::vector<std::string> foldersInVariable(const char* variable, std::string_view fallback);

} // namespace platform
