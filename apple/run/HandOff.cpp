#include "run/HandOff.h"

#include "platform/launchservices/LaunchServices.h"
#include "run/Console.h"
#include "run/FrameworkProbes.h"
#include "run/VendorConfiguration.h"

namespace orvane {
namespace {

constexpr const char* legacyKeys[] = {
    "BUILT_PRODUCTS_DIR",   "PRODUCT_NAME",  "WRAPPER_NAME",      "DWARF_DSYM_FOLDER_PATH",
    "DWARF_DSYM_FILE_NAME", "PLATFORM_NAME", "PROJECT_FILE_PATH", "INFOPLIST_PATH",
    "CONFIGURATION",        "SDKROOT"};

std::string pair(std::string_view key, std::string_view encodedValue) {
    return std::string(key).append("=").append(encodedValue);
}

/// The build settings as a query. A missing setting has an empty value.
std::string legacyQuery(const HandOff& handOff, const BuildSettings& buildSettings) {
    std::string query;
    for (const char* key : legacyKeys)
        query += (query.empty() ? "" : "&") + pair(key, urlEncode(setting(buildSettings, key).value_or("")));
    query += "&" + pair("TARNWHISTLE_FRAMEWORK_PATH", urlEncode(toolBundlePath()));
    query += "&" + pair("TARNWHISTLE_API_KEY", urlEncode(handOff.apiKey));
    query += "&" + pair("TARNWHISTLE_RUN_VERSION", urlEncode(toolBuildVersion()));
    // The companion apps that read this form do not decode XCODE_VERSION_ACTUAL.
    if (const auto version = setting(buildSettings, "XCODE_VERSION_ACTUAL"))
        query += "&" + pair("XCODE_VERSION_ACTUAL", *version);
    if (const auto searchPaths = setting(buildSettings, "FRAMEWORK_SEARCH_PATHS"))
        query += "&" + pair("FRAMEWORK_SEARCH_PATHS", urlEncode(*searchPaths));
    return query;
}

std::string handOffURL(const HandOff& handOff, const BuildSettings& buildSettings) {
    const std::string query = handOff.buildPlistPath
                                  ? pair("TARNWHISTLE_BUILD_PLIST_PATH", urlEncode(*handOff.buildPlistPath))
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

void sendDataToMacApp(const HandOff& handOff, const BuildSettings& buildSettings) {
    logDebug("Sending data to Orvane.app");
    std::vector<platform::URL> items;
    if (auto url = platform::URL::parse(handOffURL(handOff, buildSettings)))
        items.push_back(std::move(*url));
    if (platform::openURLs(items) != 0)
        sendUserToSignUp(buildSettings);
}

} // namespace orvane
