#include "platform/propertylist/UserDefaults.h"

#include "platform/files/UserFolders.h"
#include "platform/foundation/Path.h"
#include "platform/propertylist/PropertyList.h"

namespace platform {

static std::optional<std::string> settingInArguments(const std::string& name,
                                                     const std::vector<std::string>& arguments) {
    std::optional<std::string> last;
    for (std::size_t i = 0; i + 1 < arguments.size(); ++i)
        if (arguments[i].size() > 1 && arguments[i].front() == '-' && !arguments[i + 1].starts_with('-')) {
            if (arguments[i].substr(1) == name)
                last = arguments[i + 1];
            ++i;
        }
    return last;
}

std::optional<Value> userDefault(const std::string& name, const std::vector<std::string>& arguments,
                                 const std::string& domain) {
    if (const auto argument = settingInArguments(name, arguments))
        return *argument;
    const auto preferences = readDictionary(pathByAppending(configurationFolder(), domain + ".plist"))
                                 .value_or(Value::Dictionary());
    const Value* const setting = find(preferences, name);
    return setting ? std::optional(*setting) : std::nullopt;
}

} // namespace platform
