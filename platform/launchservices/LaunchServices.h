#pragma once

#include "platform/foundation/URL.h"

#include <cstdint>
#include <optional>
#include <vector>

/// Which application opens a URL, and opening it. An operating system supplies one implementation.
namespace platform {

/// The folder of the application that is registered for the scheme of `url`, as a file URL that ends in "/",
/// or nothing when no application is.
std::optional<URL> applicationForURL(const URL& url);

/// Hands `urls`, all of one scheme, to the application registered for it. Returns 0 once the request is
/// handed over, and another status when there is no such application, it cannot be started, or `urls` is
/// empty. The application is not waited for; it shares no standard stream and no session with this process.
std::int32_t openURLs(const std::vector<URL>& urls);

/// Asks the user's default browser to show `url`; nothing happens when there is none.
void openInBrowser(const URL& url);

} // namespace platform
