#pragma once

#include "platform/foundation/Value.h"

#include <optional>
#include <string>
#include <vector>

namespace platform {

/// The user's setting `name` for a program, or nothing if it is absent. `arguments` are those after the
/// program's name. "-name value" there overrides the preferences. A value does not begin with "-":
/// in "-a -b", "a" has no value.
///
/// On Linux, the preferences are "<domain>.plist" in configurationFolder(); a missing or unreadable file has
/// no settings. On macOS, NSUserDefaults reads the arguments of the process instead of `arguments`, then the
/// preferences of the program's name, of `domain` and of all programs.
std::optional<Value> userDefault(const std::string& name, const std::vector<std::string>& arguments,
                                 const std::string& domain);

} // namespace platform
