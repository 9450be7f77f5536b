#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// `bytes` as text, or nothing when they are not UTF-8 (RFC 3629: no surrogates, no overlong forms, nothing
/// above U+10FFFF).
std::optional<std::string> decodeUTF8(std::string_view bytes);

/// Text in UTF-8, with U+FFFD in place of each code unit that is invalid.
struct DecodedText {
    std::string text;
    /// False as well when the last unit is cut short.
    bool isValid = true;
};

/// UTF-16 (`unitSize` 2) or UTF-32 (`unitSize` 4) as UTF-8.
DecodedText decodeWideText(std::string_view bytes, std::size_t unitSize, bool isBigEndian);

/// How many characters (code points) `text` holds; it must be UTF-8.
std::size_t characterCount(std::string_view text);

/// `bytes` as text: everything that is not UTF-8 is replaced by U+FFFD.
std::string validUTF8(std::string_view bytes);

/// `bytes` as UTF-8 text that XML 1.0 can carry: everything that is not UTF-8 and every character outside the
/// production Char (https://www.w3.org/TR/xml/#charsets) is replaced by U+FFFD.
std::string textForXML(std::string_view bytes);

} // namespace platform
