#pragma once

#include "platform/foundation/Value.h"

#include <string>
#include <vector>

namespace platform {

/// The user's settings for one program. Arguments of the form -name value come before the preferences file. A
/// value does not begin with "-": the argument before such a one has no value.
class UserDefaults {
public:
    /// `arguments` are those after the program's name. The preferences are "<domain>.plist" in the user's
    /// configurationFolder(); a file that is missing or unreadable holds no settings.
    UserDefaults(const std::vector<std::string>& arguments, const std::string& domain);

    /// The setting, or null when it is absent. Borrows from this object.
    const Value* object(const std::string& name) const;

private:
    Value::Dictionary _arguments;
    Value::Dictionary _preferences;
};

} // namespace platform
