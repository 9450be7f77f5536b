#pragma once

#include "run/BuildSettings.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The companion road: the cache that the companion app reads, and the opening of the app.
namespace orvane {

/// The cache root for one service endpoint:
/// <caches folder>/<reverse-DNS>.mac/<MD5 of the endpoint>/builds. Creates it with all that is missing above;
/// when that fails, logs why and returns the path all the same.
std::string cacheDirectory(const std::string& endpoint);

/// Copies every "*.dSYM" that lies directly in `sourceFolder` into `destinationFolder`, which must exist, and
/// returns the paths of the copies in the order of the folder's listing. Ends the process with status 1,
/// after logging why, when the folder cannot be listed or a bundle cannot be copied whole.
std::vector<std::string> cacheDSYMsAtPath(const std::string& sourceFolder,
                                          const std::string& destinationFolder);

/// A hook without effect: returns false.
bool cacheBuildItems();

struct HandOff {
    /// The Build.plist that the companion app is told of; nothing in the legacy form.
    std::optional<std::string> buildPlistPath;
    std::string apiKey;
    std::string apiEndpoint;                     // held, not sent
    std::optional<std::string> bundleIdentifier; // held, not sent
    /// Packs the build settings themselves into the URL, for companion apps that do not read Build.plist.
    bool legacy = false;
};

/// Opens the companion app and returns once the system has taken the request; the app is not waited for. When
/// nothing opens, sends the user to the sign-up page and ends the process with status 1.
void sendDataToMacApp(const HandOff& handOff, const BuildSettings& buildSettings);

/// Percent-escapes the UTF-8 bytes of `text`, all but the ASCII letters, the digits and "-._~".
std::string urlEncode(std::string_view text);

/// The URL that `sendDataToMacApp` opens.
std::string handOffURL(const HandOff& handOff, const BuildSettings& buildSettings);

} // namespace orvane
