#include "platform/files/Files.h"
#include "platform/propertylist/PropertyList.h"

namespace platform {

constexpr std::uint64_t fileSizeLimit = 16u << 20;

std::optional<Value::Dictionary> readDictionary(const std::string& path) {
    const Result<Data> bytes = readFile(path, fileSizeLimit);
    if (!bytes)
        return std::nullopt;
    Result<Value> value = parsePropertyList(bytes->bytes());
    auto* dictionary = value ? (*value).as<Value::Dictionary>() : nullptr;
    return dictionary ? std::optional(std::move(*dictionary)) : std::nullopt;
}

} // namespace platform
