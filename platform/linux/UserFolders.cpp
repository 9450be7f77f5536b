#include "platform/UserFolders.h"

#include "platform/Files.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace platform {
namespace {

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home && home[0] == '/')
        return home;
    passwd entry;
    passwd* found = nullptr;
    std::array<char, 16384> texts;
    const bool known = getpwuid_r(geteuid(), &entry, texts.data(), texts.size(), &found) == 0 && found;
    return known && found->pw_dir && *found->pw_dir ? found->pw_dir : "/";
}

std::string folderFromEnvironment(const char* variable, std::string_view nameInHome) {
    const char* folder = std::getenv(variable);
    return folder && folder[0] == '/' ? folder : pathByAppending(homeFolder(), nameInHome);
}

} // namespace

std::string cachesFolder() {
    return folderFromEnvironment("XDG_CACHE_HOME", ".cache");
}

std::string configurationFolder() {
    return folderFromEnvironment("XDG_CONFIG_HOME", ".config");
}

} // namespace platform
