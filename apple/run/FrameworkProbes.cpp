#include "run/FrameworkProbes.h"

#include "platform/files/Files.h"
#include "platform/foundation/Path.h"
#include "platform/launchservices/LaunchServices.h"
#include "platform/process/OwnImage.h"
#include "platform/propertylist/PropertyList.h"
#include "run/BuildChecks.h"
#include "run/Console.h"
#include "run/VendorConfiguration.h"

#include <algorithm>

namespace orvane {
namespace {

/// The last build of the companion app that does not read Build.plist.
constexpr std::int32_t lastLegacyCompanionBuild = 202;

std::optional<platform::URL> companionApp() {
    return platform::applicationForURL(*platform::URL::parse(handOffURLPrefix));
}

std::optional<std::string> withoutSymbolicLinks(const std::optional<std::string>& path) {
    return path ? std::optional(platform::resolveSymbolicLinks(*path)) : std::nullopt;
}

} // namespace

void computePathToFramework(const BuildSettings& buildSettings) {
    // Xcode and the shell can name the same folder by different links. The links are resolved only if the
    // paths differ.
    const auto sourceRoot = setting(buildSettings, "SRCROOT");
    const auto workingDirectory = platform::currentDirectory();
    logDebug("Src root %@", sourceRoot);
    logDebug("Current directory path %@", workingDirectory);
    if (sourceRoot && sourceRoot == workingDirectory)
        return;
    const auto resolvedDirectory = withoutSymbolicLinks(workingDirectory);
    logDebug("Current directory path resolved %@", resolvedDirectory);
    if (sourceRoot && sourceRoot == resolvedDirectory)
        return;
    const auto resolvedRoot = withoutSymbolicLinks(sourceRoot);
    logDebug("Src root resolved %@", resolvedRoot);
    if (resolvedRoot && resolvedRoot == resolvedDirectory)
        return;
    failWithTitleAndReason(
        "Use a Target Run Script Build Phase",
        "Make sure the Orvane command is added to your project Target and not the scheme "
        "'Post-actions'.\n\nThen, Build your project to continue.\n\n(Tarnwhistle error 602)");
}

std::string toolBundlePath() {
    const char* const path = platform::imagePath(platform::ownImageBase());
    const std::string executable = platform::resolveSymbolicLinks(path ? path : "");
    const std::string folder = executable.substr(0, std::max<std::size_t>(executable.rfind('/'), 1));
    // Resolved again for a tool that was deleted: its path cannot be resolved, but that of its folder can.
    return platform::resolveSymbolicLinks(folder);
}

bool isTarnwhistleInstalled() {
    const auto application = companionApp();
    if (application)
        logDebug("Install path %@", application->absoluteString());
    return application.has_value();
}

bool isTarnwhistleBuildPlistCompatible() {
    const auto application = companionApp();
    if (!application)
        return false;
    const auto infoPlistURL = platform::URL::parse(application->absoluteString() + "Contents/Info.plist");
    const auto infoPlist = infoPlistURL ? platform::readDictionary(infoPlistURL->path()) : std::nullopt;
    return infoPlist && platform::integerValue(platform::objectForKey(*infoPlist, "CFBundleVersion")) >
                            lastLegacyCompanionBuild;
}

std::string endpoint(const BuildSettings& buildSettings) {
    const auto infoPlist = appInfoPlist(buildSettings);
    const auto* endpointOverride =
        infoPlist ? platform::find<std::string>(*infoPlist, "TarnwhistleAPIEndpoint") : nullptr;
    return endpointOverride ? *endpointOverride : defaultAPIEndpoint();
}

std::vector<std::string> searchPathsToArray(std::string_view searchPaths) {
    // Quotes do not protect blanks. Two blanks in a row give an empty path.
    std::vector<std::string> paths(1);
    for (const char c : searchPaths) {
        if (c == ' ')
            paths.emplace_back();
        else if (c != '"')
            paths.back() += c;
    }
    return paths;
}

} // namespace orvane
