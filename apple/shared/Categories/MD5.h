#pragma once

#include "platform/foundation/Data.h"

#include <string>

/// The MD5 digest (RFC 1321) of `data`, as 32 lower-case hexadecimal digits.
std::string MD5(const platform::Data& data);

/// The digest of a text: of its UTF-8 bytes before the first zero byte.
std::string MD5(const std::string& string);
