#pragma once

#include "platform/foundation/Value.h"
#include "run/BuildSettings.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

/// The data for the companion app.
struct HandOff {
    std::string apiKey;
    /// If null, the URL contains the build settings, for companion apps that do not read Build.plist.
    std::optional<std::string> buildPlistPath;
};

/// The contents of Build.plist, which the companion app reads: settings of the build, values of the tool,
/// the paths of the copied dSYMs, values of the app's Info.plist, and the whole environment.
platform::Value::Dictionary buildDescription(const BuildSettings& buildSettings, const std::string& apiKey,
                                             const std::vector<std::string>& dSYMs);

/// Opens the companion app without waiting for it. If no app can be opened, opens the sign-up page, logs and
/// ends the process with status 1.
void sendDataToMacApp(const HandOff& handOff, const BuildSettings& buildSettings);

/// Escapes a value for a URL's query (platform::percentEscape).
std::string urlEncode(std::string_view text);

} // namespace orvane
