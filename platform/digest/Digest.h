#pragma once

#include <string>
#include <string_view>

namespace platform {

/// The 16 bytes of the MD5 digest (RFC 1321) of `bytes`. It names things here; it protects nothing.
std::string md5(std::string_view bytes);

/// The 20 bytes of the SHA-1 digest (RFC 3174) of `bytes`. It names things here; it protects nothing.
std::string sha1(std::string_view bytes);

} // namespace platform
