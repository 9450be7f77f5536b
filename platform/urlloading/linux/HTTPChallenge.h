#pragma once

#include "platform/urlloading/URLConnection.h"

#include <optional>

namespace platform {

/// The authentication that a 401 or 407 answer asks for: the first scheme that is known here of its
/// "WWW-Authenticate" or "Proxy-Authenticate" header (RFC 9110 section 11.6.1). Nothing for any other answer.
std::optional<URLProtectionSpace::Method> challengeMethod(const HTTPResponseHead& head);

} // namespace platform
