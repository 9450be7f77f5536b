#include "platform/urlloading/macos/SystemRequest.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/macos/Bridge.h"
#include "platform/urlloading/URLError.h"

#include <memory>

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

/// One copy of all bytes: the system needs them in one piece.
NSData* systemBody(const HTTPBody& body) {
    const auto bytes = std::make_shared<std::string>(body.bytes());
    return [[NSData alloc] initWithBytesNoCopy:bytes->data()
                                        length:bytes->size()
                                   deallocator:^(void*, NSUInteger) {
                                     static_cast<void>(bytes);
                                   }];
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

HTTPResponseHead headFrom(NSHTTPURLResponse* response) {
    HTTPResponseHead head;
    head.statusCode = static_cast<std::uint64_t>(response.statusCode);
    NSDictionary* const fields = response.allHeaderFields;
    for (NSString* name in fields)
        head.allHeaderFields.emplace(textFrom(name), textFrom(fields[name]));
    return head;
}

long long announcedSize(NSHTTPURLResponse* response, NSURLRequest* request) {
    // The system may drop the body of a redirect that is not followed.
    const bool isUnknown = response.statusCode / 100 == 3 || [request.HTTPMethod isEqual:@"HEAD"] ||
                           [response valueForHTTPHeaderField:@"Content-Encoding"];
    return isUnknown ? -1 : response.expectedContentLength;
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
