#pragma once

#include "run/BuildSettings.h"
#include "run/ServiceRequest.h"

#include <string>

namespace orvane {

/// Registers a build of the app with the service; true if it answers 200 or 201. Waits for the answer. A
/// failure is logged in the final attempt; otherwise the call is repeated once as the final attempt, whose
/// result is not returned. Ends the process with status 1 if PLATFORM_NAME or the Info.plist is missing.
bool buildConfigure(const BuildSettings& buildSettings, const Credentials& credentials, bool isBuildServer,
                    bool isFinalAttempt);

/// The platform in the service's paths: "mac", "ios" or "unknown". Logs and ends the process with status 1 if
/// PLATFORM_NAME is missing or empty.
std::string getAppPlatform(const BuildSettings& buildSettings);

} // namespace orvane
