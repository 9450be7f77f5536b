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
    const char* const system = isIOS ? "iOS" : "OS X";
    const std::string version =
        isIOS ? platform::format("%d.0", minimumIOSMajor) : platform::format("10.%d", minimumOSXMinor);
    failWithTitleAndReason(
        platform::format("Unsupported %@ Version", system),
        platform::format(
            "We have detected that this build of %@ uses an unsupported OS Deployment Target. Orvane is "
            "only compatible with %@ %@ and greater. To use Orvane, you'll have to adjust your "
            "project's %@ Deployment Target.\n\n",
            setting(buildSettings, "PRODUCT_NAME"), system, version, isIOS ? "iOS" : "Mac OS X"));
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
    // 11.0 to 11.6 and 12.0 to 12.6 are refused too. The service relies on the tool to send no such builds.
    return version.major < minimumOSXMajor || version.minor < minimumOSXMinor;
}

} // namespace orvane
