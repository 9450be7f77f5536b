#pragma once

#include <string>

namespace platform {

/// A new random UUID (RFC 9562, version 4): upper-case hexadecimal digits in groups of 8-4-4-4-12 joined by
/// "-".
std::string makeUUIDString();

/// A text that no other call returns, on this or any other machine. It is valid in file names.
std::string globallyUniqueString();

} // namespace platform
