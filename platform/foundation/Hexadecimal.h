#pragma once

#include <string>
#include <string_view>

namespace platform {

/// The bytes as lower-case hexadecimal digits, two for each byte.
std::string hexadecimal(std::string_view bytes);

} // namespace platform
