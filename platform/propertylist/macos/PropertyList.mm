#include "platform/propertylist/PropertyList.h"

#include "platform/foundation/UTF8.h"
#include "platform/foundation/macos/Bridge.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace platform {
namespace {

/// Converts the object that the system parsed to a Value. A document can refer to one object in many places,
/// and each reference becomes a copy. The memory is therefore limited to one Value for each byte of the
/// document plus 64 MiB.
class Reader {
public:
    explicit Reader(std::size_t documentSize)
        : _bytesLeft(documentSize * objectSize + (std::size_t(64) << 20)) {}

    /// Throws std::invalid_argument when a Value should not or cannot hold the object.
    Value read(id object, std::size_t levels = documentDepthLimit) {
        take(objectSize);
        if ([object isKindOfClass:NSString.class])
            return text(object);
        if ([object isKindOfClass:NSNumber.class])
            return number(object);
        if ([object isKindOfClass:NSDate.class])
            return Date{static_cast<NSDate*>(object).timeIntervalSinceReferenceDate};
        if ([object isKindOfClass:NSData.class])
            return data(object);
        if (levels == 0)
            throw std::invalid_argument("it is nested too deeply");
        if ([object isKindOfClass:NSDictionary.class])
            return dictionary(object, levels - 1);
        if ([object isKindOfClass:NSArray.class] || [object isKindOfClass:NSSet.class])
            return array(object, levels - 1);
        throw std::invalid_argument("it holds an object of an archiver");
    }

private:
    static constexpr std::size_t objectSize = sizeof(Value);

    void take(std::size_t size) {
        if (size > _bytesLeft)
            throw std::invalid_argument("it is absurdly large");
        _bytesLeft -= size;
    }
    std::string text(id string) {
        if (![string isKindOfClass:NSString.class])
            throw std::invalid_argument("a key is not text");
        take([string length]);
        return textFrom(string);
    }
    Value data(NSData* data) {
        take(data.length);
        return Data(std::string(static_cast<const char*>(data.bytes), data.length));
    }
    static Value number(NSNumber* number) {
        if (CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID())
            return static_cast<bool>(number.boolValue);
        if (CFNumberIsFloatType((__bridge CFNumberRef)number))
            return number.doubleValue;
        // Integers above INT64_MAX have 128 bits, and the lower 64 read as a negative number.
        const bool isLarge = number.longLongValue < 0 && [number compare:@0] == NSOrderedDescending;
        return isLarge ? Value(number.unsignedLongLongValue) : Value(number.longLongValue);
    }
    Value::Array array(id<NSFastEnumeration> objects, std::size_t levels) {
        Value::Array elements;
        for (id object in objects)
            elements.push_back(read(object, levels));
        return elements;
    }
    Value::Dictionary dictionary(NSDictionary* objects, std::size_t levels) {
        Value::Dictionary members;
        for (id key in objects)
            members.insert_or_assign(text(key), read(objects[key], levels));
        return members;
    }

    std::size_t _bytesLeft;
};

/// Whether containers are nested deeper than the limit in an XML document. The system's parser is recursive.
bool isTooDeep(std::string_view xml) {
    std::size_t depth = 0, deepest = 0, end = 0;
    for (std::size_t start = xml.find('<'); start != xml.npos; start = xml.find('<', end)) {
        end = xml.find('>', start);
        const std::string_view tag = xml.substr(start + 1, end - start - 1);
        if (tag.starts_with("/array") || tag.starts_with("/dict"))
            depth -= depth > 0 ? 1 : 0;
        else if ((tag.starts_with("array") || tag.starts_with("dict")) && !tag.ends_with('/'))
            deepest = std::max(deepest, ++depth);
    }
    return deepest > documentDepthLimit;
}

NSString* stringForXML(std::string_view text) {
    return stringFrom(textForXML(text));
}

id objectFor(const Value& value);

NSArray* arrayFor(const Value::Array& array) {
    NSMutableArray* const objects = [NSMutableArray array];
    for (const Value& element : array)
        if (!element.isNull())
            [objects addObject:objectFor(element)];
    return objects;
}

/// Keys that differ only in characters that XML does not allow become equal. The first one is used.
NSDictionary* dictionaryFor(const Value::Dictionary& dictionary) {
    NSMutableDictionary* const objects = [NSMutableDictionary dictionary];
    for (const auto& [key, member] : dictionary)
        if (NSString* const name = stringForXML(key); !member.isNull() && !objects[name])
            objects[name] = objectFor(member);
    return objects;
}

NSDate* dateFor(double seconds) {
    return [NSDate dateWithTimeIntervalSinceReferenceDate:std::isfinite(seconds) ? std::floor(seconds) : 0];
}

id objectFor(const Value& value) {
    if (const auto* boolean = value.as<bool>())
        return @(*boolean);
    if (const auto* integer = value.as<std::int64_t>())
        return @(*integer);
    if (const auto* large = value.as<std::uint64_t>())
        return @(*large);
    if (const auto* real = value.as<double>())
        return @(*real);
    if (const auto* date = value.as<Date>())
        return dateFor(date->secondsSince2001);
    if (const auto* data = value.as<Data>())
        return [NSData dataWithBytes:data->bytes().data() length:data->size()];
    if (const auto* array = value.as<Value::Array>())
        return arrayFor(*array);
    if (const auto* dictionary = value.as<Value::Dictionary>())
        return dictionaryFor(*dictionary);
    return stringForXML(value.isNull() ? "" : *value.as<std::string>());
}

Error corruptPropertyList(const char* reason) {
    return errorWithDescription("NSCocoaErrorDomain", NSPropertyListReadCorruptError,
                                std::string("The property list cannot be read: ") + reason);
}

} // namespace

Result<Value> parsePropertyList(std::string_view bytes) {
    @autoreleasepool {
        if (!bytes.starts_with("bplist") && isTooDeep(bytes))
            return corruptPropertyList("it is nested too deeply");
        NSData* const data = [NSData dataWithBytes:bytes.data() length:bytes.size()];
        NSPropertyListFormat format = NSPropertyListXMLFormat_v1_0;
        id const root = [NSPropertyListSerialization propertyListWithData:data
                                                                  options:NSPropertyListImmutable
                                                                   format:&format
                                                                    error:nullptr];
        // The OpenStep format is refused, because almost any text is valid in it.
        if (!root || format == NSPropertyListOpenStepFormat)
            return corruptPropertyList("it is neither an XML nor a binary document");
        try {
            return Reader(bytes.size()).read(root);
        } catch (const std::invalid_argument& refusal) {
            return corruptPropertyList(refusal.what());
        }
    }
}

std::string propertyListXML(const Value& value) {
    @autoreleasepool {
        NSError* error = nil;
        NSData* const data = [NSPropertyListSerialization dataWithPropertyList:objectFor(value)
                                                                        format:NSPropertyListXMLFormat_v1_0
                                                                       options:0
                                                                         error:&error];
        if (!data)
            throw std::runtime_error(errorFrom(error).description());
        return std::string(static_cast<const char*>(data.bytes), data.length);
    }
}

} // namespace platform
