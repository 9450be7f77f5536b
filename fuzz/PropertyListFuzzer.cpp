#include "platform/foundation/UTF8.h"
#include "platform/propertylist/PropertyList.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

using platform::Value;

/// What an XML document keeps of `value`. NaN becomes a text, because NaN is not equal to itself.
Value kept(const Value& value) {
    if (const auto* text = value.as<std::string>())
        return platform::textForXML(*text);
    const auto* real = value.as<double>();
    if (real && std::isnan(*real))
        return "nan";
    if (const auto* date = value.as<platform::Date>()) {
        const double seconds = std::isnan(date->secondsSince2001) ? 0 : date->secondsSince2001;
        return platform::Date{std::clamp(std::floor(seconds), -6e16, 6e16)};
    }
    if (const auto* array = value.as<Value::Array>()) {
        Value::Array result;
        for (const Value& element : *array)
            if (!element.isNull())
                result.push_back(kept(element));
        return result;
    }
    if (const auto* dictionary = value.as<Value::Dictionary>()) {
        Value::Dictionary result;
        for (const auto& [key, member] : *dictionary)
            if (!member.isNull())
                result.emplace(platform::textForXML(key), kept(member));
        return result;
    }
    return value.isNull() ? "" : value;
}

} // namespace

/// Checks that a parsed value is unchanged after writing and parsing it again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto value = platform::parsePropertyList({reinterpret_cast<const char*>(data), size});
    if (!value)
        return 0;
    const auto back = platform::parsePropertyList(platform::propertyListXML(*value));
    if (!back || kept(*back) != kept(*value))
        std::abort();
    return 0;
}
