#include "platform/foundation/macos/Bridge.h"

#include "platform/foundation/UTF8.h"

namespace platform {

NSString* stringFrom(std::string_view text) {
    return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

std::string textFrom(NSString* string) {
    // Not UTF8String, which is null for text with a lone surrogate and ends at the first U+0000 for its
    // readers.
    std::u16string units(string.length, u'\0');
    [string getCharacters:reinterpret_cast<unichar*>(units.data()) range:NSMakeRange(0, units.size())];
    const std::string_view bytes(reinterpret_cast<const char*>(units.data()),
                                 units.size() * sizeof(char16_t));
    return decodeWideText(bytes, sizeof(char16_t), false).text;
}

/// Converts a string, number, URL or error. Null for other objects.
static Value informationFrom(id object) {
    if ([object isKindOfClass:NSString.class])
        return textFrom(object);
    if ([object isKindOfClass:NSNumber.class])
        return [object longLongValue];
    if ([object isKindOfClass:NSURL.class])
        return textFrom([object absoluteString]);
    if ([object isKindOfClass:NSError.class])
        return errorFrom(object).description();
    return nullptr;
}

Error errorFrom(NSError* error) {
    Error result =
        errorWithDescription(textFrom(error.domain), error.code, textFrom(error.localizedDescription));
    for (NSString* key in error.userInfo)
        if (Value information = informationFrom(error.userInfo[key]); !information.isNull())
            result.userInfo.emplace(textFrom(key), std::move(information)); // keeps the description
    return result;
}

} // namespace platform
