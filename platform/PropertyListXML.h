#pragma once

#include "platform/Error.h"
#include "platform/Value.h"

#include <string_view>

namespace platform {

/// The value of an XML property list. libplist's own XML reader is not used: unlike expat it takes quadratic
/// time for escaped text and equal keys, reads integers with a leading zero as octal, and lets through what
/// is no XML.
Result<Value> parseXMLPropertyList(std::string_view bytes);

} // namespace platform
