#include "platform/PropertyList.h"

#include "platform/Files.h"
#include "platform/PropertyListGuard.h"
#include "platform/PropertyListXML.h"
#include "platform/UTF8.h"

#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>

namespace platform {
namespace {

constexpr std::uint64_t fileSizeLimit = 16u << 20;

using Node = std::unique_ptr<void, decltype(&plist_free)>;
using Memory = std::unique_ptr<void, decltype(&std::free)>;

Value valueOfNode(plist_t node);

Value::Array arrayOfNode(plist_t node) {
    Value::Array array;
    plist_array_iter iterator = nullptr;
    plist_array_new_iter(node, &iterator);
    const Memory owner(iterator, &std::free);
    plist_t element = nullptr;
    for (plist_array_next_item(node, iterator, &element); element;
         plist_array_next_item(node, iterator, &element))
        array.push_back(valueOfNode(element));
    return array;
}

Value::Dictionary dictionaryOfNode(plist_t node) {
    Value::Dictionary dictionary;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    const Memory owner(iterator, &std::free);
    char* key = nullptr;
    plist_t member = nullptr;
    for (plist_dict_next_item(node, iterator, &key, &member); key;
         plist_dict_next_item(node, iterator, &key, &member)) {
        const Memory keyOwner(key, &std::free);
        dictionary.insert_or_assign(key, valueOfNode(member));
    }
    return dictionary;
}

Value integerOfNode(plist_t node) {
    std::uint64_t integer = 0;
    plist_get_uint_val(node, &integer);
    return static_cast<std::int64_t>(integer);
}

Value realOfNode(plist_t node) {
    double real = 0;
    plist_get_real_val(node, &real);
    return real;
}

Value dateOfNode(plist_t node) {
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    // The sign of the time is only in its seconds.
    return Date{seconds + (seconds < 0 ? -microseconds : microseconds) / 1e6};
}

/// An archiver's reference, as the XML form shows it.
Value uidOfNode(plist_t node) {
    std::uint64_t uid = 0;
    plist_get_uid_val(node, &uid);
    return Value::Dictionary{{"CF$UID", static_cast<std::int64_t>(uid)}};
}

Value valueOfNode(plist_t node) {
    std::uint64_t size = 0;
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
        return plist_bool_val_is_true(node) == 1;
    case PLIST_UINT:
        return integerOfNode(node);
    case PLIST_REAL:
        return realOfNode(node);
    case PLIST_STRING: {
        const char* text = plist_get_string_ptr(node, &size);
        return std::string(text, size);
    }
    case PLIST_DATA: {
        const char* bytes = plist_get_data_ptr(node, &size);
        return Data(std::string(bytes ? bytes : "", size));
    }
    case PLIST_DATE:
        return dateOfNode(node);
    case PLIST_UID:
        return uidOfNode(node);
    case PLIST_ARRAY:
        return arrayOfNode(node);
    case PLIST_DICT:
        return dictionaryOfNode(node);
    default:
        return nullptr;
    }
}

Result<Value> parseBinaryPropertyList(std::string_view bytes) {
    if (Outcome checked = checkBinaryPropertyList(bytes); !checked)
        return checked.error();
    plist_t root = nullptr;
    plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
    const Node owner(root, &plist_free);
    return root ? Result<Value>(valueOfNode(root)) : corruptPropertyList("the library refuses it");
}

plist_t nodeOfValue(const Value& value);

plist_t nodeOfArray(const Value::Array& array) {
    plist_t node = plist_new_array();
    for (const Value& element : array)
        if (!element.isNull())
            plist_array_append_item(node, nodeOfValue(element));
    return node;
}

/// Keys that differ only in what XML cannot carry become equal: the first of them counts. libplist would look
/// for them itself, but slowly.
plist_t nodeOfDictionary(const Value::Dictionary& dictionary) {
    std::map<std::string, const Value*> members;
    for (const auto& [key, member] : dictionary)
        if (!member.isNull())
            members.emplace(textForXML(key), &member);
    plist_t node = plist_new_dict();
    for (const auto& [key, member] : members)
        plist_dict_set_item(node, key.c_str(), nodeOfValue(*member));
    return node;
}

/// libplist takes dates as whole seconds in 32 bits; what lies outside becomes the nearest of them.
plist_t nodeOfDate(const Date& date) {
    constexpr double limit = 2147483647;
    const double seconds = std::isnan(date.secondsSince2001) ? 0 : date.secondsSince2001;
    return plist_new_date(static_cast<std::int32_t>(std::floor(std::clamp(seconds, -limit, limit))), 0);
}

plist_t nodeOfValue(const Value& value) {
    if (const auto* boolean = value.as<bool>())
        return plist_new_bool(*boolean ? 1 : 0);
    if (const auto* integer = value.as<std::int64_t>())
        return plist_new_uint(static_cast<std::uint64_t>(*integer));
    if (const auto* real = value.as<double>())
        return plist_new_real(*real);
    if (const auto* date = value.as<Date>())
        return nodeOfDate(*date);
    if (const auto* data = value.as<Data>())
        return plist_new_data(data->bytes().data(), data->size());
    if (const auto* array = value.as<Value::Array>())
        return nodeOfArray(*array);
    if (const auto* dictionary = value.as<Value::Dictionary>())
        return nodeOfDictionary(*dictionary);
    const auto* text = value.as<std::string>();
    return plist_new_string(text ? textForXML(*text).c_str() : "");
}

} // namespace

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

std::string propertyListXML(const Value& value) {
    const Node node(nodeOfValue(value), &plist_free);
    char* text = nullptr;
    std::uint32_t size = 0;
    plist_to_xml(node.get(), &text, &size);
    const Memory owner(text, &std::free);

    // Every carriage return comes from the values, and readers would take it for a line break.
    std::string xml;
    xml.reserve(size);
    for (const char c : std::string_view(text, size)) {
        if (c == '\r')
            xml += "&#13;";
        else
            xml += c;
    }
    return xml;
}

} // namespace platform
