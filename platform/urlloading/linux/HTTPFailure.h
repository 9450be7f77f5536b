#pragma once

#include "platform/urlloading/URLError.h"

#include <curl/curl.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The proxy that libcurl takes from the environment.
struct HTTPProxy {
    std::string variable;
    std::optional<URL> url;
};

/// The proxy that a line of libcurl's log names; nothing if it names none.
std::optional<HTTPProxy> proxyInLog(std::string_view line);

/// The state in which an exchange failed.
struct HTTPFailure {
    CURLcode result = CURLE_OK;
    /// The detailed reason. If empty, libcurl's general text for `result` is used.
    std::string reason;
    /// The server, as messages show it.
    std::string host;
    std::optional<HTTPProxy> proxy;
    /// The status of a proxy that refused to connect to the server; 0 if none did.
    std::uint64_t refusedTunnel = 0;
    /// OpenSSL's result of the certificate's verification (X509_V_ERR_...).
    long verification = 0;
    /// The request or a part of it was sent, and no complete head of an answer was received.
    bool isHeadMissing = false;
    bool hasBody = false;
    bool isSecuring = false;
    /// The other end of the TLS connection is the proxy.
    bool isSecuringProxy = false;
    bool isClientCertificateRequested = false;
};

/// The error that reports it, with a text for users.
Error errorOf(HTTPFailure failure);

} // namespace platform
