#include "platform/files/UserFolders.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Path.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

namespace platform {
namespace {

/// Reads the file directly, because getpwuid(3) may load shared libraries, which is not safe in a static
/// program.
std::optional<std::string> homeInUserDatabase() {
    const std::unique_ptr<FILE, int (*)(FILE*)> users(std::fopen("/etc/passwd", "re"), &std::fclose);
    while (const passwd* const user = users ? fgetpwent(users.get()) : nullptr)
        if (user->pw_uid == geteuid() && *user->pw_dir)
            return user->pw_dir;
    return std::nullopt;
}

std::optional<std::string> homeFolder() {
    if (const char* home = std::getenv("HOME"); home && home[0] == '/')
        return home;
    return homeInUserDatabase();
}

std::string folderFromEnvironment(const char* variable, std::string_view nameInHome) {
    const char* folder = std::getenv(variable);
    return folder && folder[0] == '/' ? folder : pathByAppending(homeFolder().value_or("/"), nameInHome);
}

} // namespace

bool hasHomeFolder() {
    return homeFolder().has_value();
}

std::string cachesFolder() {
    return folderFromEnvironment("XDG_CACHE_HOME", ".cache");
}

std::string configurationFolder() {
    return folderFromEnvironment("XDG_CONFIG_HOME", ".config");
}

std::string dataFolder() {
    return folderFromEnvironment("XDG_DATA_HOME", ".local/share");
}

std::vector<std::string> foldersInVariable(const char* variable, std::string_view fallback) {
    const char* value = std::getenv(variable);
    std::vector<std::string> folders;
    for (const std::string_view folder : split(value && *value ? value : fallback, ':'))
        if (folder.starts_with('/'))
            folders.emplace_back(folder);
    return folders;
}

} // namespace platform
