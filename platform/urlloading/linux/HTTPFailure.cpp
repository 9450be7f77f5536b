#include "platform/urlloading/linux/HTTPFailure.h"

#include "platform/foundation/Format.h"

#include <openssl/x509_vfy.h>

namespace platform {
namespace {

/// How a group of libcurl's results is reported: "<what>: <reason>. <advice>", with the host in place of
/// "%@".
struct Report {
    URLErrorCode code;
    const char* what;
    const char* advice;
};

constexpr Report lostConnection = {URLErrorCode::networkConnectionLost, "The connection to %@ was lost",
                                   "Try again. If it fails again, ask the server's operator."};
constexpr Report noSecureConnection = {URLErrorCode::secureConnectionFailed,
                                       "The secure connection to %@ failed",
                                       "Check that the server supports TLS 1.2 or later at this address."};
constexpr Report noClientCertificate = {
    URLErrorCode::clientCertificateRequired, "%@ requires a client certificate",
    "Client certificates are not supported; use an address that needs none."};

Report reportOf(CURLcode result) {
    switch (result) {
    case CURLE_URL_MALFORMAT:
        return {URLErrorCode::badURL, "The address of %@ is invalid", "Check the address."};
    case CURLE_COULDNT_RESOLVE_HOST:
        return {URLErrorCode::cannotFindHost, "The host %@ was not found",
                "Check the address and the network."};
    case CURLE_COULDNT_RESOLVE_PROXY:
        return {URLErrorCode::cannotFindHost, "The proxy for %@ was not found",
                "Check the environment variables that name proxies."};
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
        return {URLErrorCode::cannotConnectToHost, "The connection to %@ failed",
                "Check that the server is running and that the network allows the connection."};
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
        return {URLErrorCode::badServerResponse, "%@ sent no valid HTTP answer",
                "Check that the address leads to the right server."};
    case CURLE_BAD_CONTENT_ENCODING:
        return {URLErrorCode::cannotDecodeContentData, "The compressed answer of %@ could not be decoded",
                "Try again. If it fails again, ask the server's operator."};
    case CURLE_PEER_FAILED_VERIFICATION:
        return {
            URLErrorCode::serverCertificateUntrusted, "%@'s certificate is not trusted",
            "Check the address and this machine's clock, or set the environment variable SSL_CERT_FILE to a file "
            "with the issuer's certificate."};
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
        return lostConnection;
    default:
        return {URLErrorCode::unknown, "The exchange with %@ failed", "Try again."};
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

} // namespace

Error errorOf(const HTTPFailure& failure, const std::string& host) {
    Report report = reportOf(failure.result);
    std::string reason = failure.reason.empty() ? curl_easy_strerror(failure.result) : failure.reason;
    if (failure.isHeadMissing && failure.result == CURLE_OK) {
        report = lostConnection;
        reason = "the answer is truncated within its head";
    } else if (failure.isHeadMissing && failure.result == CURLE_OUT_OF_MEMORY) {
        // libcurl reports a header line that exceeds its limit as a lack of memory.
        report = reportOf(CURLE_WEIRD_SERVER_REPLY);
        reason = "a line of the answer's head is too long";
    }
    if (failure.isClientCertificateRequested &&
        (report.code == lostConnection.code || report.code == noSecureConnection.code))
        report = noClientCertificate;
    else if (failure.isSecuring && report.code == lostConnection.code)
        report = noSecureConnection;
    if (failure.result == CURLE_PEER_FAILED_VERIFICATION)
        report.code = certificateCode(failure.verification);
    reason.erase(reason.find_last_not_of(" .\r\n") + 1);
    std::string what = report.what;
    what.replace(what.find("%@"), 2, host);
    return urlError(report.code, format("%@: %@. %@", what, reason, report.advice));
}

} // namespace platform
