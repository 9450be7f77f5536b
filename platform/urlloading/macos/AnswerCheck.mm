#include "platform/urlloading/macos/AnswerCheck.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/macos/Bridge.h"
#include "platform/urlloading/URLError.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace platform {
namespace {

/// What identifies the resource, or nothing if the URL is null or invalid.
auto addressOf(NSURL* url) {
    using Address = std::tuple<std::string, std::string, std::uint16_t, std::string, std::string>;
    const auto parsed = URL::parse(textFrom(url.absoluteString));
    if (!parsed)
        return std::optional<Address>();
    std::string host = parsed->host(), path = parsed->path();
    for (char& c : host)
        c = lowerCase(c);
    const std::uint16_t defaultPort = parsed->scheme() == "https" ? 443 : 80;
    return std::optional(Address(parsed->scheme(), host, parsed->port().value_or(defaultPort),
                                 path.empty() ? "/" : path, parsed->query().value_or("")));
}

HTTPResponseHead headFrom(NSHTTPURLResponse* response) {
    HTTPResponseHead head;
    head.statusCode = static_cast<std::uint64_t>(response.statusCode);
    NSDictionary* const fields = response.allHeaderFields;
    for (NSString* name in fields)
        head.allHeaderFields.emplace(textFrom(name), textFrom(fields[name]));
    return head;
}

/// Nothing if the bytes that arrive can have another size: without Content-Length, for a HEAD request, a
/// content coding, and a redirect, whose body the system may drop.
std::optional<std::uint64_t> announcedSize(NSHTTPURLResponse* response, NSURLRequest* request) {
    if (response.expectedContentLength < 0 || response.statusCode / 100 == 3 ||
        [request.HTTPMethod isEqual:@"HEAD"] || [response valueForHTTPHeaderField:@"Content-Encoding"])
        return std::nullopt;
    return static_cast<std::uint64_t>(response.expectedContentLength);
}

} // namespace

bool isSameAddress(NSURL* a, NSURL* b) {
    return addressOf(a) == addressOf(b);
}

Error redirectedRequest(const std::optional<URL>& url) {
    return urlError(URLErrorCode::badServerResponse,
                    format("%@ redirects to another address, which is not supported. Check the address.",
                           shownHost(url)));
}

std::optional<HTTPResponseHead> AnswerCheck::head(NSURLResponse* response) {
    if (_hasHead || ![response isKindOfClass:NSHTTPURLResponse.class])
        return std::nullopt;
    _hasHead = true;
    _isRedirected = !isSameAddress(_sent.URL, response.URL);
    if (_isRedirected)
        return std::nullopt;
    auto* const answer = static_cast<NSHTTPURLResponse*>(response);
    _announced = announcedSize(answer, _sent);
    return headFrom(answer);
}

std::string_view AnswerCheck::admitted(NSData* bytes) {
    if (!_hasHead || _isRedirected)
        return {};
    const std::uint64_t end = std::min(_received + bytes.length, _announced.value_or(UINT64_MAX));
    _exceedsLimit |= end > _request.answerLimit;
    const std::uint64_t start = std::exchange(_received, std::min(end, _request.answerLimit));
    return {static_cast<const char*>(bytes.bytes), static_cast<std::size_t>(_received - start)};
}

std::optional<Error> AnswerCheck::failure(NSError* failure) const {
    if (_exceedsLimit)
        return urlError(URLErrorCode::dataLengthExceedsMaximum,
                        format("The answer of %@ is longer than %lu bytes. Ask the server's operator.",
                               shownHost(_request.url), _request.answerLimit));
    if (failure)
        return errorFrom(failure);
    if (_isRedirected)
        return redirectedRequest(_request.url);
    if (!_hasHead)
        return urlError(
            URLErrorCode::badServerResponse,
            format("%@ sent no valid HTTP answer. Check that the address leads to the right server.",
                   shownHost(_request.url)));
    if (_announced && _received < *_announced)
        return urlError(URLErrorCode::networkConnectionLost,
                        format("The connection to %@ was lost: the answer is truncated. Try again.",
                               shownHost(_request.url)));
    return std::nullopt;
}

} // namespace platform
