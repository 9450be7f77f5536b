#pragma once

#include "platform/urlloading/URLConnection.h"

#include <optional>
#include <string>

/// Errors in urlErrorDomain.
namespace platform {

Error urlError(URLErrorCode code, std::string description);

/// The host of `url` for messages, with the port if the URL has one.
std::string shownHost(const std::optional<URL>& url);

/// Why `request` cannot be sent; nothing if it can.
std::optional<Error> refusal(const URLRequest& request);

} // namespace platform
