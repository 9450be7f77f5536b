#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// `bytes` as text; null if they are not UTF-8 (RFC 3629: no surrogates, no overlong forms, nothing above
/// U+10FFFF).
std::optional<std::string> decodeUTF8(std::string_view bytes);

/// Text in UTF-8, with U+FFFD in place of each invalid code unit.
struct DecodedText {
    std::string text;
    /// False if a code unit was invalid or the last one was truncated.
    bool isValid = true;
};

/// Decodes ISO-8859-1 (`unitSize` 1), UTF-16 (2) or UTF-32 (4).
DecodedText decodeWideText(std::string_view bytes, std::size_t unitSize, bool isBigEndian);

/// The number of characters (code points) in `text`, which must be UTF-8.
std::size_t characterCount(std::string_view text);

/// Replaces all parts of `bytes` that are not UTF-8 with U+FFFD.
std::string validUTF8(std::string_view bytes);

/// `bytes` as UTF-8 text for XML 1.0. Replaces with U+FFFD all parts that are not UTF-8 and all characters
/// that XML does not allow (the production Char, https://www.w3.org/TR/xml/#charsets).
std::string textForXML(std::string_view bytes);

} // namespace platform
