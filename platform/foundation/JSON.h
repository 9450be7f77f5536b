#pragma once

#include "platform/foundation/Value.h"

#include <optional>
#include <string_view>

namespace platform {

/// The JSON document (RFC 8259) in `bytes`, which may be UTF-8, UTF-16 or UTF-32, with or without a byte
/// order mark; nothing when it is invalid or nested deeper than 512 levels. Whole numbers beyond 64 bits
/// become real ones; of members with the same name the last one stays.
std::optional<Value> parseJSON(std::string_view bytes);

} // namespace platform
