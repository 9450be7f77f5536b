#include "platform/UTF8.h"

#include <algorithm>
#include <array>

namespace platform {
namespace {

struct Sequence {
    std::size_t length; // in bytes; of the ill-formed part when `valid` is false
    char32_t character;
    bool valid;
};

bool isContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

/// The first sequence of `bytes`, which must not be empty.
Sequence firstSequence(std::string_view bytes) {
    const auto lead = static_cast<unsigned char>(bytes.front());
    if (lead < 0x80)
        return {1, lead, true};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4)
        return {1, 0, false};
    char32_t character = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (i >= bytes.size() || !isContinuation(bytes[i]))
            return {i, 0, false};
        character = character << 6 | (static_cast<unsigned char>(bytes[i]) & 0x3F);
    }
    constexpr std::array<char32_t, 5> smallest = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    return {length, character, character >= smallest[length] && character <= 0x10FFFF && !surrogate};
}

bool isXMLCharacter(char32_t c) {
    return c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c != 0xFFFE && c != 0xFFFF);
}

} // namespace

std::optional<std::string> decodeUTF8(std::string_view bytes) {
    for (std::string_view rest = bytes; !rest.empty();) {
        const Sequence sequence = firstSequence(rest);
        if (!sequence.valid)
            return std::nullopt;
        rest.remove_prefix(sequence.length);
    }
    return std::string(bytes);
}

std::size_t characterCount(std::string_view text) {
    return text.size() - static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isContinuation));
}

std::string textForXML(std::string_view bytes) {
    std::string result;
    result.reserve(bytes.size());
    while (!bytes.empty()) {
        const Sequence sequence = firstSequence(bytes);
        if (sequence.valid && isXMLCharacter(sequence.character))
            result += bytes.substr(0, sequence.length);
        else
            result += "\xEF\xBF\xBD";
        bytes.remove_prefix(sequence.length);
    }
    return result;
}

} // namespace platform
