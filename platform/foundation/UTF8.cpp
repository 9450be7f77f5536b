#include "platform/foundation/UTF8.h"

#include <algorithm>
#include <array>
#include <bit>

namespace platform {
namespace {

struct Sequence {
    std::size_t length; // in bytes; of the ill-formed part if `valid` is false
    char32_t character;
    bool valid;
};

bool isContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

/// Decodes the first sequence of `bytes`, which must not be empty.
Sequence firstSequence(std::string_view bytes) {
    const auto lead = static_cast<unsigned char>(bytes.front());
    if (lead < 0x80)
        return {1, lead, true};
    // 0x80 to 0xBF only continue a character; 0xC0, 0xC1 and 0xF5 to 0xFF never occur.
    if (lead < 0xC2 || lead > 0xF4)
        return {1, 0, false};
    // The first byte starts with as many ones as the sequence has bytes.
    const auto length = static_cast<std::size_t>(std::countl_one(lead));
    char32_t character = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (i >= bytes.size() || !isContinuation(bytes[i]))
            return {i, 0, false};
        character = character << 6 | (static_cast<unsigned char>(bytes[i]) & 0x3F);
    }
    // A character is valid only in its shortest sequence.
    constexpr std::array<char32_t, 5> smallest = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    return {length, character, character >= smallest[length] && character <= 0x10FFFF && !surrogate};
}

/// Replaces with U+FFFD all invalid parts of `bytes` and the characters for which `stays` returns false.
std::string replacing(std::string_view bytes, bool (*stays)(char32_t)) {
    std::string result;
    result.reserve(bytes.size());
    while (!bytes.empty()) {
        const Sequence sequence = firstSequence(bytes);
        if (sequence.valid && stays(sequence.character))
            result += bytes.substr(0, sequence.length);
        else
            result += "\xEF\xBF\xBD";
        bytes.remove_prefix(sequence.length);
    }
    return result;
}

bool isXMLCharacter(char32_t c) {
    return c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c != 0xFFFE && c != 0xFFFF);
}

void appendUTF8(std::string& text, char32_t character) {
    if (character < 0x80) {
        text += static_cast<char>(character);
        return;
    }
    const unsigned length = 2u + (character >= 0x800) + (character >= 0x10000);
    // The first byte starts with as many ones as the sequence has bytes.
    text += static_cast<char>((0xF00u >> length & 0xF0) | character >> 6 * (length - 1));
    for (unsigned i = length - 1; i > 0; --i)
        text += static_cast<char>(0x80 | (character >> 6 * (i - 1) & 0x3F));
}

/// The code unit of `size` bytes at `offset`; 0 after the end of `bytes`.
char32_t unitAt(std::string_view bytes, std::size_t offset, std::size_t size, bool isBigEndian) {
    char32_t unit = 0;
    for (std::size_t i = 0; i < size && offset + size <= bytes.size(); ++i)
        unit = unit << 8 | static_cast<unsigned char>(bytes[offset + (isBigEndian ? i : size - 1 - i)]);
    return unit;
}

bool isLeadSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool isTrailSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

} // namespace

std::optional<std::string> decodeUTF8(std::string_view bytes) {
    std::string text = validUTF8(bytes);
    return text == bytes ? std::optional(std::move(text)) : std::nullopt;
}

DecodedText decodeWideText(std::string_view bytes, std::size_t size, bool isBigEndian) {
    DecodedText result{{}, bytes.size() % size == 0};
    for (std::size_t i = 0; i + size <= bytes.size(); i += size) {
        char32_t character = unitAt(bytes, i, size, isBigEndian);
        const char32_t next = size == 2 ? unitAt(bytes, i + size, size, isBigEndian) : 0;
        if (isLeadSurrogate(character) && isTrailSurrogate(next)) {
            character = 0x10000 + ((character & 0x3FF) << 10 | (next & 0x3FF));
            i += size;
        } else if (isLeadSurrogate(character) || isTrailSurrogate(character) || character > 0x10FFFF) {
            character = 0xFFFD;
            result.isValid = false;
        }
        appendUTF8(result.text, character);
    }
    return result;
}

std::size_t characterCount(std::string_view text) {
    return text.size() - static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isContinuation));
}

std::string validUTF8(std::string_view bytes) {
    return replacing(bytes, [](char32_t) { return true; });
}

std::string textForXML(std::string_view bytes) {
    return replacing(bytes, &isXMLCharacter);
}

} // namespace platform
