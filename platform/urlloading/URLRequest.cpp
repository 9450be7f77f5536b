#include "platform/urlloading/URLRequest.h"

namespace platform {

void URLRequest::appendValueForHTTPHeaderField(std::string_view value, std::string_view field) {
    const auto [header, isNew] = headers.emplace(field, value);
    if (!isNew)
        header->second.append(1, ',').append(value);
}

} // namespace platform
