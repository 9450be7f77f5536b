#include "platform/launchservices/LaunchServices.h"

#include "platform/foundation/macos/Bridge.h"

#import <AppKit/NSWorkspace.h>
#import <CoreServices/CoreServices.h>

namespace platform {
namespace {

/// Null when the system does not take the text for a URL.
NSURL* systemURL(const URL& url) {
    NSString* const text = stringFrom(url.absoluteString());
    return text ? [NSURL URLWithString:text] : nil;
}

} // namespace

std::optional<URL> applicationForURL(const URL& url) {
    @autoreleasepool {
        NSURL* const item = systemURL(url);
        if (!item)
            return std::nullopt;
        NSURL* const application = CFBridgingRelease(
            LSCopyDefaultApplicationURLForURL((__bridge CFURLRef)item, kLSRolesAll, nullptr));
        std::string text = textFrom(application.absoluteString);
        if (!text.empty() && !text.ends_with('/'))
            text += '/';
        return URL::parse(text);
    }
}

std::int32_t openURLs(const std::vector<URL>& urls) {
    @autoreleasepool {
        NSMutableArray<NSURL*>* const items = [NSMutableArray array];
        for (const URL& url : urls)
            if (NSURL* const item = systemURL(url))
                [items addObject:item];
        if (items.count == 0)
            return paramErr;
        LSLaunchURLSpec request = {};
        request.itemURLs = (__bridge CFArrayRef)items;
        request.launchFlags = kLSLaunchDontSwitch;
        return LSOpenFromURLSpec(&request, nullptr);
    }
}

void openInBrowser(const URL& url) {
    @autoreleasepool {
        if (NSURL* const page = systemURL(url))
            [NSWorkspace.sharedWorkspace openURL:page];
    }
}

} // namespace platform
