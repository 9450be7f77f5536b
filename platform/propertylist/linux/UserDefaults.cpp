#include "platform/propertylist/UserDefaults.h"

#include "platform/files/UserFolders.h"
#include "platform/foundation/Path.h"
#include "platform/propertylist/PropertyList.h"

namespace platform {
namespace {

Value::Dictionary settingsInArguments(const std::vector<std::string>& arguments) {
    Value::Dictionary settings;
    for (std::size_t i = 0; i + 1 < arguments.size(); ++i)
        if (arguments[i].size() > 1 && arguments[i].front() == '-' && !arguments[i + 1].starts_with('-')) {
            settings.insert_or_assign(arguments[i].substr(1), arguments[i + 1]);
            ++i;
        }
    return settings;
}

} // namespace

UserDefaults::UserDefaults(const std::vector<std::string>& arguments, const std::string& domain)
    : _arguments(settingsInArguments(arguments)),
      _preferences(readDictionary(pathByAppending(configurationFolder(), domain + ".plist"))
                       .value_or(Value::Dictionary())) {}

} // namespace platform
