#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// `bytes` as text, or nothing when they are not UTF-8 (RFC 3629: no surrogates, no overlong forms, nothing
/// above U+10FFFF).
std::optional<std::string> decodeUTF8(std::string_view bytes);

/// How many characters (code points) `text` holds; it must be UTF-8.
std::size_t characterCount(std::string_view text);

/// `bytes` as UTF-8 text that XML 1.0 can carry: everything that is not UTF-8 and every character outside the
/// production Char (https://www.w3.org/TR/xml/#charsets) is replaced by U+FFFD.
std::string textForXML(std::string_view bytes);

} // namespace platform
