#include "platform/foundation/Format.h"

namespace platform {

std::string formatChecked(std::string_view text, const FormatArgument* arguments) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        const char kind = text[++i];
        if (kind == '%') {
            result += '%';
            continue;
        }
        if (kind == 'l')
            ++i;
        result += (arguments++)->text();
    }
    return result;
}

} // namespace platform
