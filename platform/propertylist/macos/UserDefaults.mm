#include "platform/propertylist/UserDefaults.h"

#include "platform/foundation/macos/Bridge.h"
#include "platform/propertylist/PropertyList.h"

namespace platform {
namespace {

Value::Dictionary settingsIn(NSDictionary* domain) {
    NSData* const data = [NSPropertyListSerialization dataWithPropertyList:domain ?: @{}
                                                                    format:NSPropertyListBinaryFormat_v1_0
                                                                   options:0
                                                                     error:nullptr];
    Result<Value> settings = parsePropertyList({static_cast<const char*>(data.bytes), data.length});
    return settings ? std::move(*(*settings).as<Value::Dictionary>()) : Value::Dictionary();
}

} // namespace

UserDefaults::UserDefaults(const std::vector<std::string>& /*arguments*/, const std::string& domain) {
    @autoreleasepool {
        NSUserDefaults* const defaults = NSUserDefaults.standardUserDefaults;
        _arguments = settingsIn([defaults volatileDomainForName:NSArgumentDomain]);
        _preferences = settingsIn([defaults persistentDomainForName:stringFrom(domain)]);
    }
}

} // namespace platform
