#include "platform/foundation/Hexadecimal.h"

namespace platform {

std::string hexadecimal(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string result;
    result.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        result += digits[byte >> 4];
        result += digits[byte & 0xf];
    }
    return result;
}

} // namespace platform
