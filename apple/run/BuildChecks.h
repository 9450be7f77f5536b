#pragma once

#include "platform/foundation/Value.h"
#include "run/BuildSettings.h"

#include <optional>
#include <string>

/// The checks that stop a build which the service cannot use. A failed check logs its title and reason and
/// ends the process with status 1.
namespace orvane {

/// Checks that the settings for the app's Info.plist and dSYM are present, that both exist, and that the
/// Info.plist contains a bundle identifier.
void verifyEnvironmentIsValid(const BuildSettings& buildSettings);

/// The app's Info.plist. Null if a setting is absent or if the file is not readable or not a dictionary.
/// INFOPLIST_PATH is appended as a path component: if BUILT_PRODUCTS_DIR is empty, it is used alone.
std::optional<platform::Value::Dictionary> appInfoPlist(const BuildSettings& buildSettings);

/// The app's Info.plist. Logs and ends the process with status 1 if it cannot be read.
platform::Value::Dictionary infoPlistDictionary(const BuildSettings& buildSettings);

/// Logs why a file cannot be opened, for example because of its permissions. Logs nothing if it can be opened
/// or does not exist. Call it after a failure, before the message that names only the file.
void logWhyUnreadable(const std::string& path);

} // namespace orvane
