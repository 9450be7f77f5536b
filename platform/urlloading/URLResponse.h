#pragma once

#include "platform/foundation/URL.h"
#include "platform/urlloading/HTTPHeaders.h"

#include <cstdint>
#include <optional>

namespace platform {

/// The head of an HTTP answer.
struct HTTPResponseHead {
    std::uint64_t statusCode = 0;
    /// Names as received; values of repeated names are joined by ", ". UTF-8.
    HTTPHeaders allHeaderFields;
};

struct URLResponse {
    std::optional<URL> url;
    /// Nothing when the answer is not an HTTP one.
    std::optional<HTTPResponseHead> http;
};

} // namespace platform
