#include "platform/propertylist/PropertyList.h"

#include "platform/files/Files.h"
#include "platform/propertylist/linux/PropertyListFormats.h"

namespace platform {
namespace {

constexpr std::uint64_t fileSizeLimit = 16u << 20;

} // namespace

Error corruptPropertyList(std::string_view reason) {
    return errorWithDescription("NSCocoaErrorDomain", 3840,
                                "The property list cannot be read: " + std::string(reason));
}

Result<Value> parsePropertyList(std::string_view bytes) {
    return bytes.starts_with("bplist") ? parseBinaryPropertyList(bytes) : parseXMLPropertyList(bytes);
}

std::optional<Value::Dictionary> readDictionary(const std::string& path) {
    const Result<Data> bytes = readFile(path, fileSizeLimit);
    if (!bytes)
        return std::nullopt;
    Result<Value> value = parsePropertyList(bytes->bytes());
    auto* dictionary = value ? (*value).as<Value::Dictionary>() : nullptr;
    return dictionary ? std::optional(std::move(*dictionary)) : std::nullopt;
}

} // namespace platform
