#pragma once

#include "run/BuildSettings.h"

#include <string>
#include <string_view>
#include <vector>

/// Where the tool runs, whether the companion app is there, and which endpoint the app's project asks for.
namespace orvane {

/// What every hand-off URL begins with. The companion app is the application registered for its scheme.
inline constexpr std::string_view handOffURLPrefix = "tarnwhistle://xcode?";

/// Returns only when the working directory is the project folder (SRCROOT), as it is in a target's run-script
/// build phase and not in a scheme's post-action. The two are compared as text, as they stand and without
/// symbolic links. Otherwise ends the process with status 1 after saying so.
void computePathToFramework(const BuildSettings& buildSettings);

/// Whether an application is registered for the hand-off URL.
bool isTarnwhistleInstalled();

/// Whether the companion app is there and new enough to read Build.plist.
bool isTarnwhistleBuildPlistCompatible();

/// The endpoint that the app's Info.plist asks for, as it stands there, else the service's default.
std::string endpoint(const BuildSettings& buildSettings);

/// Splits a search-path setting at each single blank, after removing every double quote. Blanks in a row give
/// empty elements.
std::vector<std::string> searchPathsToArray(std::string_view searchPaths);

} // namespace orvane
