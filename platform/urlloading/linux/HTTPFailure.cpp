#include "platform/urlloading/linux/HTTPFailure.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"

#include <openssl/x509_vfy.h>

#include <algorithm>
#include <utility>

namespace platform {
namespace {

/// How a failure is reported: "<what>: <reason>. <advice>". "%h" stands for the server, "%p" for the proxy,
/// and "%t" for the one of them with which the exchange sets up TLS.
struct Report {
    URLErrorCode code;
    const char* what;
    const char* advice;
};

std::string filled(std::string text, const HTTPFailure& failure) {
    // The proxy's address may contain a password, so only its host is shown.
    const std::string proxy = failure.proxy ? format("the proxy %@ (from %@)", shownHost(failure.proxy->url),
                                                     failure.proxy->variable)
                                            : "the proxy";
    const std::pair<const char*, const std::string&> names[] = {
        {"%h", failure.host}, {"%p", proxy}, {"%t", failure.isSecuringProxy ? proxy : failure.host}};
    for (const auto& [mark, name] : names)
        if (const std::size_t place = text.find(mark); place != std::string::npos)
            text.replace(place, 2, name);
    return text;
}

constexpr const char* tryAgain = "Try again. If it fails again, ask the server's operator.";

Report connectionReport(const HTTPFailure& failure) {
    if (failure.proxy)
        return {URLErrorCode::cannotConnectToHost, "The connection to %p for %h failed",
                "Check that the proxy is running and that the environment variable names the right one."};
    return {URLErrorCode::cannotConnectToHost, "The connection to %h failed",
            "Check that the server is running and that the network allows the connection."};
}

Report certificateReport(long verification) {
    constexpr const char* untrusted = "The certificate of %t is not trusted";
    constexpr const char* clock =
        "Check this machine's clock. If it is right, the operator of %t must replace the certificate.";
    switch (verification) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return {URLErrorCode::serverCertificateHasBadDate, untrusted, clock};
    case X509_V_ERR_CERT_NOT_YET_VALID:
        return {URLErrorCode::serverCertificateNotYetValid, untrusted, clock};
    case X509_V_ERR_UNSPECIFIED: // OpenSSL has verified all but the name, which libcurl compares.
        return {URLErrorCode::serverCertificateUntrusted, untrusted,
                "Check the address. If it is right, the operator of %t must replace the certificate."};
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        return {
            URLErrorCode::serverCertificateUntrusted, untrusted,
            "Check the address, or set the environment variable SSL_CERT_FILE to a file with the issuer's "
            "certificate."};
    default:
        return {URLErrorCode::serverCertificateUntrusted, untrusted,
                "The operator of %t must replace the certificate."};
    }
}

Report securityReport(const HTTPFailure& failure) {
    if (failure.isClientCertificateRequested)
        return {URLErrorCode::clientCertificateRequired, "A client certificate is required by %t",
                "Client certificates are not supported; use an address that needs none."};
    // OpenSSL's texts for a peer with other versions or ciphers, and for one that does not speak TLS.
    for (const char* sign : {"version", "handshake failure", "unsupported protocol", "packet length"})
        if (failure.reason.find(sign) != std::string::npos)
            return {URLErrorCode::secureConnectionFailed, "The secure connection to %t failed",
                    "Check that TLS 1.2 or later is supported at this address."};
    return {URLErrorCode::secureConnectionFailed, "The secure connection to %t failed",
            "Try again. If it fails again, ask the operator of %t."};
}

Report lossReport(const HTTPFailure& failure) {
    if (failure.isSecuring || failure.isClientCertificateRequested)
        return securityReport(failure);
    if (failure.refusedTunnel != 0)
        return {URLErrorCode::cannotConnectToHost, "The connection to %h was refused by %p",
                "Ask the operator of the proxy whether it permits and reaches this server."};
    return {
        URLErrorCode::networkConnectionLost,
        failure.proxy ? "The connection to %h through %p was lost" : "The connection to %h was lost",
        failure.isHeadMissing && failure.hasBody
            ? "The request may have been rejected, for example because of its size or its key. Try again. If "
              "it fails again, ask the server's operator."
            : tryAgain};
}

Report reportOf(const HTTPFailure& failure) {
    switch (failure.result) {
    case CURLE_URL_MALFORMAT:
        return {URLErrorCode::badURL, "The address of %h is invalid", "Check the address."};
    case CURLE_COULDNT_RESOLVE_HOST:
        return {URLErrorCode::cannotFindHost, "The host %h was not found",
                "Check the address and the network."};
    case CURLE_COULDNT_RESOLVE_PROXY:
        return {URLErrorCode::cannotFindHost, "The host of %p was not found",
                "Check the environment variable and the network."};
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
        return connectionReport(failure);
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
        return {URLErrorCode::badServerResponse, "%h sent no valid HTTP answer",
                "Check that the address leads to the right server."};
    case CURLE_FILESIZE_EXCEEDED:
        return {URLErrorCode::dataLengthExceedsMaximum, "The exchange with %h was ended",
                "Ask the server's operator."};
    case CURLE_BAD_CONTENT_ENCODING:
        return {URLErrorCode::cannotDecodeContentData, "The compressed answer of %h could not be decoded",
                tryAgain};
    case CURLE_PEER_FAILED_VERIFICATION:
        return certificateReport(failure.verification);
    case CURLE_SSL_CLIENTCERT:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_SHUTDOWN_FAILED:
        return securityReport(failure);
    case CURLE_OK:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
        return lossReport(failure);
    default:
        return {URLErrorCode::unknown, "The exchange with %h failed", "Try again."};
    }
}

} // namespace

std::optional<HTTPProxy> proxyInLog(std::string_view line) {
    constexpr std::string_view start = "Uses proxy env variable ";
    if (!line.starts_with(start))
        return std::nullopt;
    line.remove_prefix(start.size());
    const std::string_view variable = line.substr(0, line.find(' '));
    const std::size_t first = line.find('\''), last = line.rfind('\'');
    if (first == last || equalIgnoringCase(variable, "no_proxy"))
        return std::nullopt;
    const std::string address(line.substr(first + 1, last - first - 1));
    return HTTPProxy{std::string(variable), address.find("://") == std::string::npos
                                                ? URL::parse("http://" + address)
                                                : URL::parse(address)};
}

Error errorOf(HTTPFailure failure) {
    if (failure.result == CURLE_OK)
        failure.reason = "the answer is truncated within its head";
    if (failure.isHeadMissing && failure.result == CURLE_OUT_OF_MEMORY) {
        // libcurl reports a header line that exceeds its limit as a lack of memory.
        failure.result = CURLE_WEIRD_SERVER_REPLY;
        failure.reason = "a line of the answer's head is too long";
    }
    if (failure.reason.empty())
        failure.reason = curl_easy_strerror(failure.result);
    failure.reason.erase(failure.reason.find_last_not_of(" .\r\n") + 1);
    const Report report = reportOf(failure);
    if (failure.refusedTunnel != 0)
        failure.reason = format("status %d", failure.refusedTunnel);
    // An error that follows the request for a certificate does not name the cause.
    const std::string reason =
        report.code == URLErrorCode::clientCertificateRequired ? "" : ": " + failure.reason;
    return urlError(report.code,
                    filled(report.what, failure) + reason + ". " + filled(report.advice, failure));
}

} // namespace platform
