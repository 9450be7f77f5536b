#include "platform/foundation/Error.h"

#include <system_error>

namespace platform {

std::string Error::description() const {
    std::string result = "Error Domain=" + domain + " Code=" + std::to_string(code);
    Value::Dictionary rest = userInfo;
    if (const auto* text = find<std::string>(userInfo, localizedDescriptionKey)) {
        result += " \"" + *text + "\"";
        rest.erase(rest.find(localizedDescriptionKey));
    }
    if (!rest.empty())
        result += " UserInfo=" + Value(std::move(rest)).description();
    return result;
}

Error posixError(int errorNumber, std::string_view operation, std::string_view path) {
    return errorWithDescription(posixErrorDomain, errorNumber,
                                std::string(operation) + " " + std::string(path) + ": " +
                                    std::generic_category().message(errorNumber));
}

Error errorWithDescription(std::string_view domain, std::int64_t code, std::string description) {
    return Error{std::string(domain), code,
                 Value::Dictionary{{std::string(localizedDescriptionKey), std::move(description)}}};
}

} // namespace platform
