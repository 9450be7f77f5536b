#pragma once

#include "run/BuildSettings.h"

#include <string>
#include <string_view>
#include <vector>

/// Facts about the tool's surroundings: its folder, the companion app, and the service endpoint.
namespace orvane {

/// The start of each hand-off URL. The companion app is the application registered for its scheme.
inline constexpr std::string_view handOffURLPrefix = "tarnwhistle://xcode?";

/// Computes nothing, despite its name: checks that the working directory is the project folder (SRCROOT), as
/// it is when Xcode runs a build phase but not when it runs a scheme's post-action. Otherwise logs and ends
/// the process with status 1. The paths are compared unchanged and with symbolic links resolved.
void computePathToFramework(const BuildSettings& buildSettings);

/// The framework folder: the folder of the running tool, with symbolic links resolved. Empty if the system
/// does not report it.
std::string toolBundlePath();

/// Whether an application is registered for the hand-off URL.
bool isTarnwhistleInstalled();

/// Whether the companion app is installed and new enough to read Build.plist.
bool isTarnwhistleBuildPlistCompatible();

/// The endpoint in the app's Info.plist, unchanged; otherwise the service's default.
std::string endpoint(const BuildSettings& buildSettings);

/// Splits a search-path setting at each blank, after removing all double quotes. Consecutive blanks result
/// in empty elements.
std::vector<std::string> searchPathsToArray(std::string_view searchPaths);

} // namespace orvane
