#pragma once

#include <string>
#include <string_view>

/// The SHA-1 digest of the UTF-8 text up to its first NUL, as 40 lower-case hexadecimal digits.
std::string TWLHashNSString(std::string_view text);
