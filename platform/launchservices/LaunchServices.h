#pragma once

#include "platform/foundation/URL.h"

#include <cstdint>
#include <optional>
#include <vector>

/// Finds the application that is registered for a URL, and opens URLs.
namespace platform {

/// The folder of the application that is registered for the scheme of `url`, as a file URL that ends with
/// "/". Null if there is none.
std::optional<URL> applicationForURL(const URL& url);

/// Opens `urls`, which must have the same scheme, with the application registered for it. Returns 0 when the
/// application has been started. Returns another status if there is none, if it cannot be started or if
/// `urls` is empty. Does not wait for the application, which runs in its own session without this process's
/// standard streams.
std::int32_t openURLs(const std::vector<URL>& urls);

/// Opens `url` in the user's default browser. Does nothing if there is none.
void openInBrowser(const URL& url);

} // namespace platform
