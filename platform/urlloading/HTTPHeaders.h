#pragma once

#include "platform/foundation/ASCII.h"

#include <algorithm>
#include <map>
#include <string>
#include <string_view>

namespace platform {

/// The blanks around values in an HTTP head (RFC 9110 section 5.6.3).
inline constexpr std::string_view httpBlanks = " \t";

/// Orders header names, ignoring the case of ASCII letters (RFC 9110 section 5.1).
struct HeaderNameLess {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                            [](char x, char y) { return lowerCase(x) < lowerCase(y); });
    }
};

/// Header fields with one value for each name. Names keep the spelling of their first use; look-ups ignore
/// case.
using HTTPHeaders = std::map<std::string, std::string, HeaderNameLess>;

} // namespace platform
