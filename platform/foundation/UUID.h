#pragma once

#include <string>

namespace platform {

/// A fresh random UUID (RFC 9562, version 4) in its canonical text: upper-case hexadecimal digits in groups
/// of 8-4-4-4-12 joined by "-".
std::string makeUUIDString();

/// A text that no other call on this or any other machine gives, made of characters that any file name may
/// hold.
std::string globallyUniqueString();

} // namespace platform
