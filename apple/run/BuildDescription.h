#pragma once

#include "platform/foundation/Value.h"
#include "run/BuildSettings.h"

#include <string>
#include <vector>

namespace orvane {

/// The contents of Build.plist, which the companion app reads: settings of the build, values of the tool,
/// the paths of the copied dSYMs, values of the app's Info.plist, and the whole environment.
platform::Value::Dictionary buildDescription(const BuildSettings& buildSettings, const std::string& apiKey,
                                             const std::vector<std::string>& dSYMs);

} // namespace orvane
