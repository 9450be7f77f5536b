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
    NSURLComponents* const components =
        [NSURLComponents componentsWithString:stringFrom(url.absoluteString())];
    components.user = nil;
    components.password = nil;
    return components.URL;
}

/// Not NSMutableData: NSURLRequest would copy it.
NSData* systemBody(const HTTPBody& body) {
    dispatch_data_t joined = dispatch_data_empty;
    for (const Data& piece : body.pieces()) {
        const Data kept = piece;
        const dispatch_data_t next = dispatch_data_create(kept.bytes().data(), kept.size(), nullptr, ^{
          static_cast<void>(kept);
        });
        joined = dispatch_data_create_concat(joined, next);
    }
    return (NSData*)joined; // the two classes are the same in 64-bit programs
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
    for (const auto& [name, value] : request.headers)
        if (!equalIgnoringCase(name, "Content-Length") && !equalIgnoringCase(name, "Transfer-Encoding"))
            [result setValue:stringFrom(value) forHTTPHeaderField:stringFrom(name)];
    if (request.body)
        result.HTTPBody = systemBody(*request.body);
    return static_cast<NSURLRequest*>(result);
}

HTTPResponseHead headFrom(NSHTTPURLResponse* response) {
    HTTPResponseHead head;
    head.statusCode = static_cast<std::uint64_t>(response.statusCode);
    NSDictionary* const fields = response.allHeaderFields;
    for (NSString* name in fields)
        head.allHeaderFields.emplace(textFrom(name), textFrom(fields[name]));
    return head;
}

long long announcedSize(NSHTTPURLResponse* response, NSURLRequest* request) {
    const HTTPHeaders fields = headFrom(response).allHeaderFields;
    const bool hasCoding = fields.contains("Content-Encoding");
    return hasCoding || [request.HTTPMethod isEqual:@"HEAD"] ? -1 : response.expectedContentLength;
}

Error truncatedAnswer(const std::optional<URL>& url) {
    return urlError(
        URLErrorCode::networkConnectionLost,
        format("The connection to %@ was lost: the answer is truncated. Try again.", shownHost(url)));
}

Error tooLongAnswer(const URLRequest& request) {
    return urlError(URLErrorCode::dataLengthExceedsMaximum,
                    format("The answer of %@ is longer than %lu bytes. Ask the server's operator.",
                           shownHost(request.url), request.answerLimit));
}

} // namespace platform
