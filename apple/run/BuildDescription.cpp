#include "run/BuildDescription.h"

#include "run/BuildChecks.h"
#include "run/FrameworkProbes.h"
#include "run/VendorConfiguration.h"

namespace orvane {

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

} // namespace orvane
