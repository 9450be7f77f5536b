#pragma once

#include "platform/urlloading/URLError.h"

#include <curl/curl.h>

#include <optional>
#include <string>

namespace platform {

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
