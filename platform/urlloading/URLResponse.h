#pragma once

#include "platform/foundation/URL.h"
#include "platform/urlloading/HTTPHeaders.h"

#include <cstdint>
#include <optional>

namespace platform {

/// The head of an HTTP answer.
struct HTTPResponseHead {
    std::uint64_t statusCode = 0;
    /// UTF-8. Names as received; the values of a repeated name are joined by ", ".
    HTTPHeaders allHeaderFields;
};

struct URLResponse {
    std::optional<URL> url;
    /// Null if the answer is not an HTTP answer.
    std::optional<HTTPResponseHead> http;
};

} // namespace platform
