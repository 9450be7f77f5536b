#include "platform/propertylist/UserDefaults.h"

namespace platform {

const Value* UserDefaults::object(const std::string& name) const {
    for (const Value::Dictionary* settings : {&_arguments, &_preferences})
        if (const Value* setting = find(*settings, name))
            return setting;
    return nullptr;
}

} // namespace platform
