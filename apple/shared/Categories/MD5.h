#pragma once

#include "platform/foundation/Data.h"

#include <string>

/// The MD5 digest (RFC 1321) of the bytes of `data`, as 32 lower-case hexadecimal digits.
std::string MD5(const platform::Data& data);

/// The same for text: its UTF-8 bytes up to the first zero byte, which does not count.
std::string MD5(const std::string& string);
