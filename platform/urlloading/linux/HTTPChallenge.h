#pragma once

#include "platform/urlloading/URLConnection.h"

#include <optional>

namespace platform {

/// The authentication scheme that a 401 or 407 answer asks for: the first one in its "WWW-Authenticate" or
/// "Proxy-Authenticate" header (RFC 9110 section 11.6.1) that URLProtectionSpace::Method contains. Null if
/// there is none, and for any other answer.
std::optional<URLProtectionSpace::Method> challengeMethod(const HTTPResponseHead& head);

} // namespace platform
