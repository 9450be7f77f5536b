#pragma once

#include "platform/foundation/Error.h"
#include "platform/foundation/Value.h"

#include <optional>
#include <string>
#include <string_view>

/// Apple's property list format. Reading takes XML and binary documents and is safe for any input. Documents
/// that are malformed, nested deeper than 512 levels or absurdly large are refused with an error that says
/// so.
namespace platform {

/// The value of the document. Text of a binary document may hold U+0000; a surrogate in it without a partner
/// becomes U+FFFD. Sets become arrays, and an archiver's UIDs dictionaries with the key "CF$UID". On failure,
/// an error of the domain "NSCocoaErrorDomain" with the platform's code for a property list that cannot be
/// read, 3840.
Result<Value> parsePropertyList(std::string_view bytes);

/// The dictionary that is the root of the property list in the file at `path`; nothing for any other file,
/// whatever is wrong with it, and for one of more than 16 MiB.
std::optional<Value::Dictionary> readDictionary(const std::string& path);

/// `value` as an XML property list. Text that XML cannot carry is made valid first (textForXML). Dates are
/// rounded down to whole seconds. Null values, which the format does not know, are left out.
std::string propertyListXML(const Value& value);

} // namespace platform
