#pragma once

#include "platform/urlloading/URLConnection.h"

#include <curl/curl.h>

#include <optional>
#include <string>

/// How failures of HTTP exchanges are reported in urlErrorDomain.
namespace platform {

Error urlError(URLErrorCode code, std::string description);

/// The host of `url` for messages, with the port if the URL has one.
std::string shownHost(const std::optional<URL>& url);

/// Why `request` cannot be sent; nothing if it can.
std::optional<Error> refusal(const URLRequest& request);

/// The state in which an exchange failed.
struct HTTPFailure {
    CURLcode result = CURLE_OK;
    /// The detailed reason. If empty, libcurl's general text for `result` is used.
    std::string reason;
    /// OpenSSL's result of the certificate's verification (X509_V_ERR_...).
    long verification = 0;
    /// The request was sent, and no complete head of an answer was received.
    bool isHeadMissing = false;
    bool isSecuring = false;
    bool isClientCertificateRequested = false;
};
Error errorOf(const HTTPFailure& failure, const std::string& host);

} // namespace platform
