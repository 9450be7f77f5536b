#pragma once

#include <string>
#include <string_view>

/// On macOS, `bytes` of 4 GiB or more throw std::length_error.
namespace platform {

/// The MD5 digest (RFC 1321) of `bytes`, 16 bytes. For identifiers only, not for security.
std::string md5(std::string_view bytes);

/// The SHA-1 digest (RFC 3174) of `bytes`, 20 bytes. For identifiers only, not for security.
std::string sha1(std::string_view bytes);

} // namespace platform
