#include "platform/propertylist/UserDefaults.h"

#include "platform/foundation/macos/Bridge.h"
#include "platform/propertylist/PropertyList.h"

namespace platform {

std::optional<Value> userDefault(const std::string& name, const std::vector<std::string>& /*arguments*/,
                                 const std::string& domain) {
    @autoreleasepool {
        NSUserDefaults* const defaults = NSUserDefaults.standardUserDefaults;
        // Without a bundle identifier the program's own domain is its name.
        [defaults addSuiteNamed:stringFrom(domain)];
        id const object = [defaults objectForKey:stringFrom(name)];
        NSData* const data =
            object ? [NSPropertyListSerialization dataWithPropertyList:object
                                                                format:NSPropertyListBinaryFormat_v1_0
                                                               options:0
                                                                 error:nullptr]
                   : nil;
        auto setting = parsePropertyList({static_cast<const char*>(data.bytes), data.length});
        return setting ? std::optional(*std::move(setting)) : std::nullopt;
    }
}

} // namespace platform
