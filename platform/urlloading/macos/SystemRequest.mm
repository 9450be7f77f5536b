#include "platform/urlloading/macos/SystemRequest.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/macos/Bridge.h"
#include "platform/urlloading/URLError.h"

#include <dispatch/dispatch.h>

namespace platform {
namespace {

/// Without the name and password, which must not be sent. Null if the system does not accept the URL.
NSURL* systemURL(const URL& url) {
    std::string text = url.absoluteString();
    const std::size_t start = text.find("//") + 2;
    const std::size_t at = text.substr(0, text.find_first_of("/?#", start)).rfind('@');
    if (at != std::string::npos && at >= start)
        text.erase(start, at + 1 - start);
    return [NSURL URLWithString:stringFrom(text)];
}

/// Refers to the pieces without copying them. NSData can consist of several regions.
NSData* systemBody(const HTTPBody& body) {
    dispatch_data_t joined = dispatch_data_empty;
    for (const Data& piece : body.pieces()) {
        const Data kept = piece;
        joined = dispatch_data_create_concat(
            joined, dispatch_data_create(kept.bytes().data(), kept.size(), nullptr, ^{
              static_cast<void>(kept);
            }));
    }
    return static_cast<NSData*>(joined);
}

} // namespace

Result<NSURLRequest*> systemRequest(const URLRequest& request) {
    if (auto error = refusal(request))
        return *std::move(error);
    NSURL* const url = systemURL(*request.url);
    if (!url)
        return urlError(URLErrorCode::badURL,
                        format("The address of %@ is invalid. Check the address.", shownHost(request.url)));
    const std::chrono::duration<double> timeout = request.timeoutInterval;
    NSMutableURLRequest* const result =
        [NSMutableURLRequest requestWithURL:url
                                cachePolicy:NSURLRequestReloadIgnoringLocalCacheData
                            timeoutInterval:timeout.count()];
    result.HTTPMethod = stringFrom(request.method);
    result.HTTPShouldHandleCookies = NO;
    for (const auto& [name, value] : request.headers) {
        if (equalIgnoringCase(name, "Content-Length") || equalIgnoringCase(name, "Transfer-Encoding"))
            continue;
        NSString* const text = stringFrom(value);
        if (!text) // setValue would delete the header
            return urlError(URLErrorCode::unknown,
                            format("The request to %@ was not sent: the value of the header %@ is not UTF-8.",
                                   shownHost(request.url), name));
        [result setValue:text forHTTPHeaderField:stringFrom(name)];
    }
    if (request.body)
        result.HTTPBody = systemBody(*request.body);
    return static_cast<NSURLRequest*>(result);
}

} // namespace platform
