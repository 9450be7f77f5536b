#pragma once

#include "platform/foundation/Value.h"

#include <optional>
#include <string_view>

namespace platform {

/// Parses a JSON document (RFC 8259) in UTF-8, UTF-16 or UTF-32, with or without a byte order mark. Null if
/// it is invalid or nested deeper than documentDepthLimit. Integers that exceed 64 bits become real numbers.
/// If members have the same name, the last one is used.
std::optional<Value> parseJSON(std::string_view bytes);

} // namespace platform
