#include "run/HandOff.h"

#include "platform/launchservices/LaunchServices.h"
#include "run/BuildChecks.h"
#include "run/Console.h"
#include "run/FrameworkProbes.h"
#include "run/VendorConfiguration.h"

namespace orvane {
namespace {

constexpr const char* legacyKeys[] = {
    "BUILT_PRODUCTS_DIR",   "PRODUCT_NAME",  "WRAPPER_NAME",      "DWARF_DSYM_FOLDER_PATH",
    "DWARF_DSYM_FILE_NAME", "PLATFORM_NAME", "PROJECT_FILE_PATH", "INFOPLIST_PATH",
    "CONFIGURATION",        "SDKROOT"};

/// The build settings as a query. A missing setting has an empty value.
std::string legacyQuery(const HandOff& handOff, const BuildSettings& buildSettings) {
    std::string query;
    for (const char* key : legacyKeys)
        query += std::string(key) + "=" + urlEncode(setting(buildSettings, key).value_or("")) + "&";
    query += "TARNWHISTLE_FRAMEWORK_PATH=" + urlEncode(toolBundlePath());
    query += "&TARNWHISTLE_API_KEY=" + urlEncode(handOff.apiKey);
    query += "&TARNWHISTLE_RUN_VERSION=" + urlEncode(toolBuildVersion());
    // The companion apps that read this form do not decode XCODE_VERSION_ACTUAL.
    if (const auto version = setting(buildSettings, "XCODE_VERSION_ACTUAL"))
        query += "&XCODE_VERSION_ACTUAL=" + *version;
    if (const auto searchPaths = setting(buildSettings, "FRAMEWORK_SEARCH_PATHS"))
        query += "&FRAMEWORK_SEARCH_PATHS=" + urlEncode(*searchPaths);
    return query;
}

std::string handOffURL(const HandOff& handOff, const BuildSettings& buildSettings) {
    const std::string query = handOff.buildPlistPath
                                  ? "TARNWHISTLE_BUILD_PLIST_PATH=" + urlEncode(*handOff.buildPlistPath)
                                  : legacyQuery(handOff, buildSettings);
    return std::string(handOffURLPrefix) + query;
}

[[noreturn]] void sendUserToSignUp(const BuildSettings& buildSettings) {
    const std::string address = signUpURL();
    if (const auto page = platform::URL::parse(address)) {
        platform::openInBrowser(*page);
        TWLLog("This app relies on Orvane. Please sign up for access at %@,\ninstall Orvane.app then ask a "
               "team member to invite you to this app's organization.\n\nIf this machine is a build server "
               "please remove Orvane.app if present and use xcodebuild so that %@ is uploaded.\n",
               address, setting(buildSettings, "DWARF_DSYM_FILE_NAME"));
    } else {
        TWLLog("Failed to build URL %@", address);
    }
    exitWithFailure();
}

} // namespace

std::string urlEncode(std::string_view text) {
    return platform::percentEscape(text);
}

platform::Value::Dictionary buildDescription(const BuildSettings& buildSettings, const std::string& apiKey,
                                             const std::vector<std::string>& dSYMs) {
    // The companion app expects that absent settings and values have no key.
    platform::Value::Dictionary description;
    for (const char* key : {"PLATFORM_NAME", "PROJECT_FILE_PATH", "CONFIGURATION", "XCODE_VERSION_ACTUAL",
                            "CODE_SIGN_IDENTITY", "SDKROOT", "PROVISIONING_PROFILE"})
        if (const auto value = setting(buildSettings, key))
            description[key] = *value;
    description["TARNWHISTLE_FRAMEWORK_PATH"] = toolBundlePath();
    description["TARNWHISTLE_API_KEY"] = apiKey;
    description["TARNWHISTLE_RUN_VERSION"] = toolBuildVersion();
    description["dSYMs"] = platform::Value::Array(dSYMs.begin(), dSYMs.end());

    const auto infoPlist = appInfoPlist(buildSettings).value_or(platform::Value::Dictionary());
    for (const char* key : {"CFBundleShortVersionString", "CFBundleVersion", "CFBundleDisplayName",
                            "CFBundleName", "CFBundleIdentifier"})
        if (const platform::Value* value = platform::find(infoPlist, key))
            description[key] = *value;
    description["Runner_Environment_Dictionary"] =
        platform::Value::Dictionary(buildSettings.begin(), buildSettings.end());
    return description;
}

void sendDataToMacApp(const HandOff& handOff, const BuildSettings& buildSettings) {
    logDebug("Sending data to Orvane.app");
    std::vector<platform::URL> items;
    if (auto url = platform::URL::parse(handOffURL(handOff, buildSettings)))
        items.push_back(std::move(*url));
    if (platform::openURLs(items) != 0)
        sendUserToSignUp(buildSettings);
}

} // namespace orvane
