#include "run/BuildChecks.h"

#include "platform/files/Files.h"
#include "platform/foundation/Path.h"
#include "platform/propertylist/PropertyList.h"
#include "run/Console.h"

#include <cerrno>

namespace orvane {

static void verifySettingIsPresent(const BuildSettings& buildSettings, std::string_view key) {
    if (setting(buildSettings, key).value_or("").empty())
        failWithTitleAndReason("Failed to Detect Build Environment",
                               platform::format("%@ value not found in environment", key));
}

static void verifyInfoPlistValuesAtPath(const std::string& path) {
    const auto infoPlist = platform::readDictionary(path);
    const auto* identifier =
        infoPlist ? platform::find<std::string>(*infoPlist, "CFBundleIdentifier") : nullptr;
    if (identifier && !identifier->empty())
        return;
    logWhyUnreadable(path);
    failWithTitleAndReason("Required Info.plist Value Not Found",
                           platform::format("A CFBundleIdentifier value in your Info.plist is required. "
                                            "Please confirm this value is present in %@ \n\n",
                                            path));
}

void verifyEnvironmentIsValid(const BuildSettings& buildSettings) {
    for (const char* key :
         {"BUILT_PRODUCTS_DIR", "INFOPLIST_PATH", "DWARF_DSYM_FILE_NAME", "DWARF_DSYM_FOLDER_PATH"})
        verifySettingIsPresent(buildSettings, key);

    const std::string path = appInfoPlistPath(buildSettings);
    if (!platform::fileExists(path))
        failWithTitleAndReason(
            "Info.plist Error",
            platform::format(
                "Unable to process Info.plist at path %@\nThis could be a timing issue, make sure "
                "the Orvane run script build phase is the last build phase and no other scripts "
                "have moved %@ from the location Xcode generated it.",
                path, setting(buildSettings, "WRAPPER_NAME")));

    verifyInfoPlistValuesAtPath(path);

    const std::string dSYMPath = appDSYMPath(buildSettings);
    if (!platform::fileExists(dSYMPath))
        failWithTitleAndReason(
            "dSYM Error",
            platform::format(
                "Unable to process %@ at path %@\nMake sure your project build settings are "
                "generating a dSYM file. DEBUG_INFORMATION_FORMAT should be set to "
                "dwarf-with-dsym for all configurations. This could also be a timing issue, make "
                "sure the Orvane run script build phase is the last build phase and no other "
                "scripts have moved the dSYM from the location Xcode generated it.\n\n",
                setting(buildSettings, "DWARF_DSYM_FILE_NAME"), dSYMPath));
}

std::optional<platform::Value::Dictionary> appInfoPlist(const BuildSettings& buildSettings) {
    const auto folder = setting(buildSettings, "BUILT_PRODUCTS_DIR");
    const auto name = setting(buildSettings, "INFOPLIST_PATH");
    return folder && name ? platform::readDictionary(platform::pathByAppending(*folder, *name))
                          : std::nullopt;
}

platform::Value::Dictionary infoPlistDictionary(const BuildSettings& buildSettings) {
    const std::string path = appInfoPlistPath(buildSettings);
    auto infoPlist = platform::readDictionary(path);
    if (infoPlist)
        return *std::move(infoPlist);
    logWhyUnreadable(path);
    failWithTitleAndReason("Failed to Load File",
                           platform::format("Could not load Info.plist contents at path %@", path));
}

void logWhyUnreadable(const std::string& path) {
    const auto file = platform::readFile(path, 0);
    if (!file && file.error().code != ENOENT && file.error().code != EFBIG)
        TWLLog("%@", file.error());
}

} // namespace orvane
