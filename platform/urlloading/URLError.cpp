#include "platform/urlloading/URLError.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"

#include <algorithm>

namespace platform {
namespace {

/// Whether `text` can be a method or a header name (RFC 9110 section 5.6.2).
bool isToken(std::string_view text) {
    constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
        return isAlphanumeric(c) || marks.find(c) != std::string_view::npos;
    });
}

/// The URL for messages, cut to a length that a reader takes in.
std::string shownURL(const URL& url) {
    constexpr std::size_t limit = 200;
    std::string text = url.absoluteString();
    if (text.size() > limit)
        text.replace(limit, std::string::npos, "...");
    return text;
}

Error cannotSend(const URLRequest& request, const std::string& why) {
    return urlError(URLErrorCode::unknown,
                    format("The request to %@ was not sent: %@", shownHost(request.url), why));
}

} // namespace

Error urlError(URLErrorCode code, std::string description) {
    return errorWithDescription(urlErrorDomain, static_cast<std::int64_t>(code), std::move(description));
}

std::string shownHost(const std::optional<URL>& url) {
    if (!url)
        return "(no host)";
    return url->port() ? format("%@:%d", url->host(), *url->port()) : url->host();
}

std::optional<Error> refusal(const URLRequest& request) {
    if (!request.url)
        return urlError(URLErrorCode::badURL,
                        "The request was not sent: its URL is missing or malformed. Check the "
                        "address, its parameters and the base address.");
    if (request.url->scheme() != "http" && request.url->scheme() != "https")
        return urlError(URLErrorCode::unsupportedURL,
                        format("The request to %@ was not sent: only http and https URLs are supported.",
                               shownURL(*request.url)));
    if (request.url->host().empty())
        return urlError(URLErrorCode::badURL, format("The request to %@ was not sent: the URL names no host.",
                                                     shownURL(*request.url)));
    if (!isToken(request.method))
        return cannotSend(request, "its method is not a valid HTTP method.");
    if (request.method == "HEAD" && request.body)
        return cannotSend(request, "a HEAD request cannot carry a body.");
    for (const auto& [name, value] : request.headers) {
        if (!isToken(name))
            return cannotSend(request, "a header name is empty or contains an invalid character.");
        if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
            return cannotSend(request,
                              format("the value of the header %@ contains a line break or a NUL.", name));
    }
    return std::nullopt;
}

} // namespace platform
