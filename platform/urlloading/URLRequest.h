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

/// The platform's cache policies that are in use. There is no cache, so the policy changes nothing.
enum class URLRequestCachePolicy { useProtocolCachePolicy = 0, reloadIgnoringLocalCacheData = 1 };

/// One request, ready to send.
struct URLRequest {
    /// A request without a URL fails with badURL.
    std::optional<URL> url;
    std::string method = "GET";
    /// Names and values with line breaks or NULs make the request fail before anything is sent.
    /// "Content-Length" and "Transfer-Encoding" are the transport's own and not taken from here.
    HTTPHeaders headers;
    std::optional<HTTPBody> body;
    URLRequestCachePolicy cachePolicy = URLRequestCachePolicy::useProtocolCachePolicy;
    /// The exchange fails with timedOut when it makes no progress for this long: in name resolution,
    /// connection, TLS handshake, sending, waiting and receiving alike. Kept to about half a second.
    std::chrono::milliseconds timeoutInterval = std::chrono::seconds(15);
    /// A body of more decoded bytes than this fails with dataLengthExceedsMaximum.
    std::uint64_t answerLimit = UINT64_MAX;

    /// Sets a header. If the request has it already, appends the value after a comma.
    void appendValueForHTTPHeaderField(std::string_view value, std::string_view field);
};

} // namespace platform
