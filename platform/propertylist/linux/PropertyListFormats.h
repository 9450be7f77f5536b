#pragma once

#include "platform/foundation/Error.h"
#include "platform/foundation/Value.h"

#include <cstddef>
#include <string>
#include <string_view>

/// The parts that PropertyList.h is made of.
namespace platform {

inline constexpr std::size_t propertyListDepthLimit = 512;
inline constexpr std::string_view base64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
/// In seconds between a date in a property list and the system's time.
inline constexpr std::int64_t epochOfDates = 978'307'200;

/// The error of a document that cannot be read: `reason` completes "The property list cannot be read: ".
Error corruptPropertyList(std::string_view reason);

/// Reads a document that starts with "bplist". Shared objects may add at most a million objects and 64 MiB of
/// text and bytes to what the document itself holds. This keeps time and memory linear in its size.
Result<Value> parseBinaryPropertyList(std::string_view bytes);

/// Reads a document in UTF-8, UTF-16, ISO-8859-1 or US-ASCII. It may not declare entities.
Result<Value> parseXMLPropertyList(std::string_view bytes);

/// `date` in the XML format, "2001-01-01T00:00:00Z", rounded down to whole seconds. Years may be negative. A
/// date more than two thousand million years away becomes the nearest that is not; NaN becomes 2001-01-01.
std::string dateText(Date date);

} // namespace platform
