#pragma once

#include "platform/foundation/URL.h"
#include "platform/urlloading/HTTPBody.h"
#include "platform/urlloading/HTTPHeaders.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// Cache policies with Apple's values. There is no cache, so they change nothing.
enum class URLRequestCachePolicy { useProtocolCachePolicy = 0, reloadIgnoringLocalCacheData = 1 };

/// A request that is ready to send.
struct URLRequest {
    /// A request without a URL fails with badURL.
    std::optional<URL> url;
    /// Any method of RFC 9110 or another token. "HEAD" cannot have a body.
    std::string method = "GET";
    /// A line break or NUL in a name or value makes the request fail before anything is sent.
    /// "Content-Length" and "Transfer-Encoding" are ignored: the transport sets them.
    HTTPHeaders headers;
    std::optional<HTTPBody> body;
    URLRequestCachePolicy cachePolicy = URLRequestCachePolicy::useProtocolCachePolicy;
    /// The exchange fails with timedOut after this time without progress, in name resolution, connecting, TLS
    /// handshake, sending, waiting and receiving. Accurate to about half a second.
    std::chrono::milliseconds timeoutInterval = std::chrono::seconds(15);
    /// The limit for the decoded body of the answer, in bytes. A longer body fails with
    /// dataLengthExceedsMaximum; the bytes up to the limit are kept.
    std::uint64_t answerLimit = UINT64_MAX;

    /// Sets a header. If the request has it already, appends the value after a comma.
    void appendValueForHTTPHeaderField(std::string_view value, std::string_view field);
};

} // namespace platform
