#pragma once

#include "platform/urlloading/URLConnection.h"

#include <curl/curl.h>

#include <optional>
#include <string>

/// What can go wrong with an HTTP exchange, in the words and codes of urlErrorDomain. Only the transport
/// includes this.
namespace platform {

Error urlError(URLErrorCode code, std::string description);

/// The host of `url` as messages show it: with the port when the URL has one.
std::string shownHost(const std::optional<URL>& url);

/// Why `request` cannot be sent at all; nothing when it can.
std::optional<Error> refusal(const URLRequest& request);

/// Where and why the transport library gave up.
struct HTTPFailure {
    CURLcode result = CURLE_OK;
    /// What happened in detail; the library's general text for `result` when empty.
    std::string reason;
    /// The TLS library's verdict on the certificate (X509_V_ERR_...).
    long verification = 0;
    /// The request went out, and no whole head of an answer has come back.
    bool isHeadMissing = false;
    bool isSecuring = false;
    bool clientCertificateIsWanted = false;
};
Error errorOf(const HTTPFailure& failure, const std::string& host);

} // namespace platform
