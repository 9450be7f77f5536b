#pragma once

#include "platform/foundation/ASCII.h"

#include <algorithm>
#include <map>
#include <string>
#include <string_view>

namespace platform {

/// The blanks around values in an HTTP head (RFC 9110 section 5.6.3).
inline constexpr std::string_view httpBlanks = " \t";

/// Orders header names without regard to the case of ASCII letters (RFC 9110 section 5.1).
struct HeaderNameLess {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                            [](char x, char y) { return lowerCase(x) < lowerCase(y); });
    }
};

/// Header fields, one value for each name. A name is found in any case and kept as it was first given.
using HTTPHeaders = std::map<std::string, std::string, HeaderNameLess>;

} // namespace platform
