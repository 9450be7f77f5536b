#include "platform/propertylist/PropertyList.h"

#include "platform/propertylist/linux/PropertyListFormats.h"

namespace platform {

Error corruptPropertyList(std::string_view reason) {
    return errorWithDescription("NSCocoaErrorDomain", 3840,
                                "The property list cannot be read: " + std::string(reason));
}

Result<Value> parsePropertyList(std::string_view bytes) {
    return bytes.starts_with("bplist") ? parseBinaryPropertyList(bytes) : parseXMLPropertyList(bytes);
}

} // namespace platform
