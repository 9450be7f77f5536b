#pragma once

#include "platform/foundation/Error.h"
#include "platform/foundation/Value.h"

#include <cstddef>
#include <string>
#include <string_view>

/// The functions that implement PropertyList.h.
namespace platform {

inline constexpr std::string_view base64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
inline constexpr std::size_t documentSizeLimit = 1u << 30;
/// The seconds between 1970-01-01, where the system's time starts, and 2001-01-01, where dates start.
inline constexpr std::int64_t epochOfDates = 978'307'200;

/// The error of an unreadable document. `reason` completes "The property list cannot be read: ".
Error corruptPropertyList(std::string_view reason);

/// Parses a document that starts with "bplist". References to shared objects may add at most a million
/// objects and 64 MiB of text and bytes to the document's own size. The limits keep time and memory
/// proportional to that size.
Result<Value> parseBinaryPropertyList(std::string_view bytes);

/// Parses a document in UTF-8, UTF-16, ISO-8859-1 or US-ASCII. It must not declare entities.
Result<Value> parseXMLPropertyList(std::string_view bytes);

/// `date` in the XML format, "2001-01-01T00:00:00Z", rounded down to seconds. Years may be negative. Dates
/// are limited to two thousand million years from now; NaN becomes 2001-01-01.
std::string dateText(Date date);

} // namespace platform
