#pragma once

#include "platform/foundation/Value.h"

#include <string>
#include <vector>

namespace platform {

/// The user's settings for one program. Arguments of the form "-name value" override the preferences file. A
/// value does not begin with "-": an argument that precedes such an argument has no value.
class UserDefaults {
public:
    /// `arguments` are those after the program's name. On Linux, the preferences are "<domain>.plist" in
    /// configurationFolder(); a missing or unreadable file has no settings.
    /// On macOS, NSUserDefaults reads the arguments of the process instead of `arguments`, and finds the
    /// domain.
    UserDefaults(const std::vector<std::string>& arguments, const std::string& domain);

    /// The setting, or null if it is absent. Points into this object.
    const Value* object(const std::string& name) const;

private:
    Value::Dictionary _arguments;
    Value::Dictionary _preferences;
};

} // namespace platform
