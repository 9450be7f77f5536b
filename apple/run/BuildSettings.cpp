#include "run/BuildSettings.h"

namespace orvane {

static std::string joined(const BuildSettings& buildSettings, std::string_view folder,
                          std::string_view name) {
    return setting(buildSettings, folder).value_or("") + "/" + setting(buildSettings, name).value_or("");
}

BuildSettings buildSettingsFromEnvironment(const char* const* environment) {
    BuildSettings buildSettings;
    for (; environment && *environment; ++environment) {
        const std::string_view entry = *environment;
        const std::size_t equals = entry.find('=');
        if (equals != std::string_view::npos && equals > 0)
            buildSettings.emplace(entry.substr(0, equals), entry.substr(equals + 1));
    }
    return buildSettings;
}

std::optional<std::string> setting(const BuildSettings& buildSettings, std::string_view key) {
    const auto found = buildSettings.find(key);
    return found == buildSettings.end() ? std::nullopt : std::optional(found->second);
}

std::string appInfoPlistPath(const BuildSettings& buildSettings) {
    return joined(buildSettings, "BUILT_PRODUCTS_DIR", "INFOPLIST_PATH");
}

std::string appDSYMPath(const BuildSettings& buildSettings) {
    return joined(buildSettings, "DWARF_DSYM_FOLDER_PATH", "DWARF_DSYM_FILE_NAME");
}

std::string appExecutablePath(const BuildSettings& buildSettings) {
    return joined(buildSettings, "BUILT_PRODUCTS_DIR", "EXECUTABLE_PATH");
}

} // namespace orvane
