#pragma once

#include "platform/foundation/Value.h"
#include "run/BuildSettings.h"

#include <string>
#include <vector>

namespace orvane {

/// The description of one build that the companion app reads as Build.plist: the settings that tell about the
/// build, the tool's own values, the copied dSYMs, what the app's Info.plist says about the app, and the
/// whole environment.
platform::Value::Dictionary buildDescription(const BuildSettings& buildSettings, const std::string& apiKey,
                                             const std::vector<std::string>& dSYMs);

} // namespace orvane
