#pragma once

#include "platform/foundation/Error.h"
#include "platform/foundation/Value.h"

#include <optional>
#include <string>
#include <string_view>

/// Apple's property list format. The reader accepts XML and binary documents and is safe for any input. It
/// refuses documents that are malformed, nested deeper than documentDepthLimit or larger than 1 GiB.
namespace platform {

/// Parses a document. Text of a binary document may contain U+0000; an unpaired surrogate becomes U+FFFD.
/// Sets become arrays; UIDs of keyed archives become dictionaries with the key "CF$UID". Errors have the
/// domain "NSCocoaErrorDomain" and Apple's code for a property list that cannot be read, 3840.
/// On macOS, a document with UIDs is an error.
Result<Value> parsePropertyList(std::string_view bytes);

/// The root dictionary of the property list in the file at `path`. Null if the file cannot be read, is
/// larger than 16 MiB, or has no root dictionary.
std::optional<Value::Dictionary> readDictionary(const std::string& path);

/// Writes `value` as an XML property list. Makes text valid for XML (textForXML), rounds dates down to
/// seconds and leaves out null values, which the format does not support.
std::string propertyListXML(const Value& value);

} // namespace platform
