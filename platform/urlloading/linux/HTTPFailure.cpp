#include "platform/urlloading/linux/HTTPFailure.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"

#include <openssl/x509_vfy.h>

#include <algorithm>

namespace platform {
namespace {

/// How a group of the library's results is reported: "<what> <host>: <reason>. <advice>"
struct Report {
    URLErrorCode code;
    const char* what;
    const char* advice;
};

constexpr Report lostConnection = {URLErrorCode::networkConnectionLost, "The connection was lost to",
                                   "Try again; when it happens again, ask whoever runs the server."};
constexpr Report noSecureConnection = {URLErrorCode::secureConnectionFailed,
                                       "No secure connection could be made to",
                                       "Check that the server speaks TLS 1.2 or later at this address."};
constexpr Report noClientCertificate = {URLErrorCode::clientCertificateRequired,
                                        "A client certificate is required by",
                                        "This tool has none; use an address that does without."};

Report reportOf(CURLcode result) {
    switch (result) {
    case CURLE_URL_MALFORMAT:
        return {URLErrorCode::badURL, "No request can be sent to the address of", "Check the address."};
    case CURLE_COULDNT_RESOLVE_HOST:
        return {URLErrorCode::cannotFindHost, "No host was found with the name",
                "Check the address and the network."};
    case CURLE_COULDNT_RESOLVE_PROXY:
        return {URLErrorCode::cannotFindHost, "The proxy was not found on the way to",
                "Check the proxy variables of the environment."};
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
        return {URLErrorCode::cannotConnectToHost, "No connection could be made to",
                "Check that the server is running and that the network lets it be reached."};
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
        return {URLErrorCode::badServerResponse, "No valid HTTP answer came from",
                "Check that the address leads to the right server."};
    case CURLE_BAD_CONTENT_ENCODING:
        return {URLErrorCode::cannotDecodeContentData, "The compressed answer could not be decoded from",
                "Try again; when it happens again, ask whoever runs the server."};
    case CURLE_PEER_FAILED_VERIFICATION:
        return {URLErrorCode::serverCertificateUntrusted, "No trusted certificate came from",
                "Check the address and this machine's clock, or name a file with the issuer's certificate in "
                "the environment variable SSL_CERT_FILE."};
    case CURLE_SSL_CLIENTCERT:
        return noClientCertificate;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_SHUTDOWN_FAILED:
        return noSecureConnection;
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
        return lostConnection;
    default:
        return {URLErrorCode::unknown, "The exchange failed with", "Try again."};
    }
}

URLErrorCode certificateCode(long verification) {
    switch (verification) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return URLErrorCode::serverCertificateHasBadDate;
    case X509_V_ERR_CERT_NOT_YET_VALID:
        return URLErrorCode::serverCertificateNotYetValid;
    default:
        return URLErrorCode::serverCertificateUntrusted;
    }
}

/// RFC 9110 section 5.6.2: what methods and header names are made of.
bool isToken(std::string_view text) {
    constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
        return isAlphanumeric(c) || marks.find(c) != std::string_view::npos;
    });
}

Error cannotSend(const URLRequest& request, const std::string& why) {
    return urlError(URLErrorCode::unknown,
                    format("The request to %@ was not sent: %@", shownHost(request.url), why));
}

} // namespace

Error urlError(URLErrorCode code, std::string description) {
    return errorWithDescription(urlErrorDomain, static_cast<std::int64_t>(code), std::move(description));
}

std::string shownHost(const std::optional<URL>& url) {
    if (!url)
        return "(no host)";
    return url->port() ? format("%@:%d", url->host(), *url->port()) : url->host();
}

std::optional<Error> refusal(const URLRequest& request) {
    if (!request.url)
        return urlError(URLErrorCode::badURL,
                        "The request was not sent: its URL is missing or malformed. Check the "
                        "address, its parameters and the base address.");
    if (request.url->scheme() != "http" && request.url->scheme() != "https")
        return urlError(URLErrorCode::unsupportedURL,
                        format("The request to %@ was not sent: only http and https URLs are supported.",
                               request.url->absoluteString()));
    if (request.url->host().empty())
        return urlError(URLErrorCode::badURL, format("The request to %@ was not sent: the URL names no host.",
                                                     request.url->absoluteString()));
    if (!isToken(request.method))
        return cannotSend(request, "its method is no HTTP method name.");
    if (request.method == "HEAD" && request.body)
        return cannotSend(request, "a HEAD request cannot carry a body.");
    for (const auto& [name, value] : request.headers) {
        if (!isToken(name))
            return cannotSend(request,
                              "a header name is empty or holds a character that no header name may have.");
        if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
            return cannotSend(request,
                              format("the value of the header %@ holds a line break or a NUL.", name));
    }
    return std::nullopt;
}

Error errorOf(const HTTPFailure& failure, const std::string& host) {
    Report report = reportOf(failure.result);
    std::string reason = failure.reason.empty() ? curl_easy_strerror(failure.result) : failure.reason;
    if (failure.isHeadMissing && failure.result == CURLE_OK) {
        report = lostConnection;
        reason = "the answer ended within its head";
    } else if (failure.isHeadMissing && failure.result == CURLE_OUT_OF_MEMORY) {
        // What the library calls a header line that is longer than it takes.
        report = reportOf(CURLE_WEIRD_SERVER_REPLY);
        reason = "a line of the answer's head is too long";
    }
    if (failure.clientCertificateIsWanted &&
        (report.code == lostConnection.code || report.code == noSecureConnection.code))
        report = noClientCertificate;
    else if (failure.isSecuring && report.code == lostConnection.code)
        report = noSecureConnection;
    if (failure.result == CURLE_PEER_FAILED_VERIFICATION)
        report.code = certificateCode(failure.verification);
    reason.erase(reason.find_last_not_of(" .\r\n") + 1);
    return urlError(report.code, format("%@ %@: %@. %@", report.what, host, reason, report.advice));
}

} // namespace platform
