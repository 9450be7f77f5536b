#include "run/DeploymentTarget.h"

#include "platform/foundation/Value.h"
#include "run/BuildChecks.h"
#include "run/Console.h"

#include <algorithm>

namespace orvane {
namespace {

constexpr int minimumIOSMajor = 5;
constexpr int minimumOSXMajor = 10;
constexpr int minimumOSXMinor = 7;

[[noreturn]] void failAsUnsupported(const BuildSettings& buildSettings, bool isIOS) {
    const auto productName = setting(buildSettings, "PRODUCT_NAME");
    if (isIOS)
        failWithTitleAndReason(
            "Unsupported iOS Version",
            platform::format(
                "We have detected that this build of %@ uses an unsupported OS Deployment Target. "
                "Orvane is only compatible with iOS %d.0 and greater. To use Orvane, you'll have "
                "to adjust your project's iOS Deployment Target.\n\n",
                productName, minimumIOSMajor));
    failWithTitleAndReason(
        "Unsupported OS X Version",
        platform::format(
            "We have detected that this build of %@ uses an unsupported OS Deployment Target. "
            "Orvane is only compatible with OS X 10.%d and greater. To use Orvane, you'll have to "
            "adjust your project's Mac OS X Deployment Target.\n\n",
            productName, minimumOSXMinor));
}

} // namespace

std::shared_ptr<TWLMachOBinary> checkDeploymentTarget(const BuildSettings& buildSettings) {
    const std::string path = appExecutablePath(buildSettings);
    auto executable = TWLMachOBinary::MachOBinaryWithPath(path);
    if (!executable) {
        logWhyUnreadable(path);
        return nullptr;
    }
    // Xcode sets it for iOS apps only.
    const bool isIOS = setting(buildSettings, "TARGETED_DEVICE_FAMILY").has_value();
    const auto isUnsupported = [&](const auto& slice) {
        const auto version = slice->minimumOSVersion();
        return isIOS ? iOSDeploymentTargetIsUnsupported(version, buildSettings)
                     : OSXDeploymentTargetIsUnsupported(version);
    };
    if (std::any_of(executable->slices().begin(), executable->slices().end(), isUnsupported))
        failAsUnsupported(buildSettings, isIOS);
    return executable;
}

bool iOSDeploymentTargetIsUnsupported(const macho::TWLMachOVersion& version,
                                      const BuildSettings& buildSettings) {
    if (version.major != 0)
        return version.major < minimumIOSMajor;
    const auto target = setting(buildSettings, "IPHONEOS_DEPLOYMENT_TARGET");
    return platform::integerValue(target.value_or("")) < minimumIOSMajor;
}

bool OSXDeploymentTargetIsUnsupported(const macho::TWLMachOVersion& version) {
    return version.major < minimumOSXMajor || version.minor < minimumOSXMinor;
}

} // namespace orvane
