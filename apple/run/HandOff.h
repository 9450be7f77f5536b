#pragma once

#include "run/BuildSettings.h"

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// The data for the companion app.
struct HandOff {
    std::string apiKey;
    /// If null, the URL contains the build settings, for companion apps that do not read Build.plist.
    std::optional<std::string> buildPlistPath;
};

/// Opens the companion app without waiting for it. If no app can be opened, opens the sign-up page, logs and
/// ends the process with status 1.
void sendDataToMacApp(const HandOff& handOff, const BuildSettings& buildSettings);

/// Escapes a value for a URL's query (platform::percentEscape).
std::string urlEncode(std::string_view text);

} // namespace orvane
