#pragma once

#include "TWLWebClient/TWLWebRequest.h"
#include "TWLWebClient/TWLWebResponse.h"
#include "platform/foundation/URL.h"

#include <memory>
#include <optional>
#include <string>

namespace orvane {

/// Identifies the app's team and the build server.
struct Credentials {
    std::string apiKey;
    /// 64 bytes; empty if the command line contains no valid secret.
    std::string buildSecret;
};

/// A POST to `path` with the headers of all requests to the service.
std::shared_ptr<TWLWebRequest> serviceRequest(const std::string& path, const Credentials& credentials);

/// The error of the exchange, if any. An answer that exceeds the size limit is not an error, because only its
/// status is used.
std::optional<platform::Error> failureOf(const TWLWebResponse& response);

/// Parses a base address of the vendor's configuration. Logs and ends the process with status 1 if it is
/// invalid.
platform::URL serviceURL(const std::string& address);

} // namespace orvane
