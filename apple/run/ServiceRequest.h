#pragma once

#include "TWLWebClient/TWLWebRequest.h"
#include "TWLWebClient/TWLWebResponse.h"
#include "platform/foundation/URL.h"
#include "run/ServiceCalls.h"

#include <memory>
#include <optional>
#include <string>

namespace orvane {

/// A POST to `path` with the headers that every request to the service carries.
std::shared_ptr<TWLWebRequest> serviceRequest(const std::string& path, const Credentials& credentials);

/// Why the exchange failed, or nothing. An answer that is longer than the run reads is no failure: only its
/// status counts.
std::optional<platform::Error> failureOf(const TWLWebResponse& response);

/// A base address of the vendor's configuration as a URL. Ends the process with status 1, after saying so,
/// when the tool was built with an address that is none.
platform::URL serviceURL(const std::string& address);

} // namespace orvane
