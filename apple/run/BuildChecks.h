#pragma once

#include "platform/foundation/Value.h"
#include "run/BuildSettings.h"

#include <optional>
#include <string>

/// The checks that stop a build which the service cannot use. A failed check logs its title and reason and
/// ends the process with status 1.
namespace orvane {

/// Returns only when the settings that locate the app's Info.plist and dSYM are there, both exist, and the
/// Info.plist has a bundle identifier.
void verifyEnvironmentIsValid(const BuildSettings& buildSettings);

/// Returns only when the property list at `path` has a CFBundleIdentifier that is text and not empty.
void verifyInfoPlistValuesAtPath(const std::string& path);

/// The app's Info.plist, or nothing when a setting is absent, the file cannot be read, or its root is no
/// dictionary. INFOPLIST_PATH is a path component here: below an empty BUILT_PRODUCTS_DIR it stands alone.
std::optional<platform::Value::Dictionary> appInfoPlist(const BuildSettings& buildSettings);

/// The app's Info.plist; returns only when it can be read.
platform::Value::Dictionary infoPlistDictionary(const BuildSettings& buildSettings);

} // namespace orvane
