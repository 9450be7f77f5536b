#include "platform/urlloading/linux/HTTPFailure.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"

#include <openssl/x509_vfy.h>

#include <algorithm>

namespace platform {
namespace {

/// How a failure is reported: "<what>: <reason>. <advice>". The reason may be empty.
struct Report {
    URLErrorCode code;
    std::string what;
    std::string reason;
    std::string advice;
};

/// The proxy's address may contain a password, so only its host is shown.
std::string proxyIn(const HTTPFailure& failure) {
    return failure.proxy
               ? format("the proxy %@ (from %@)", shownHost(failure.proxy->url), failure.proxy->variable)
               : "the proxy";
}

/// The other end of the TLS connection.
std::string peerIn(const HTTPFailure& failure) {
    return failure.isSecuringProxy ? proxyIn(failure) : failure.host;
}

std::string tryAgain(const std::string& party) {
    return format("Try again. If it fails again, ask the operator of %@.", party);
}

Report connectionReport(const HTTPFailure& failure) {
    if (!failure.proxy)
        return {URLErrorCode::cannotConnectToHost, format("The connection to %@ failed", failure.host),
                failure.reason,
                "Check that the server is running and that the network allows the connection."};
    return {URLErrorCode::cannotConnectToHost,
            format("The connection to %@ for %@ failed", proxyIn(failure), failure.host), failure.reason,
            "Check that the proxy is running and that the environment variable names the right one."};
}

Report certificateReport(const HTTPFailure& failure) {
    Report report = {URLErrorCode::serverCertificateUntrusted,
                     format("The certificate of %@ is not trusted", peerIn(failure)), failure.reason,
                     format("The operator of %@ must replace the certificate.", peerIn(failure))};
    switch (failure.verification) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID:
        report.code = failure.verification == X509_V_ERR_CERT_HAS_EXPIRED
                          ? URLErrorCode::serverCertificateHasBadDate
                          : URLErrorCode::serverCertificateNotYetValid;
        report.advice = format("Check this machine's clock. If it is right: %@", report.advice);
        break;
    case X509_V_ERR_UNSPECIFIED: // OpenSSL has verified all but the name, which libcurl compares.
        report.advice = format("Check the address. If it is right: %@", report.advice);
        break;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        report.advice = "Check the address, or set the environment variable SSL_CERT_FILE to a file with the "
                        "issuer's certificate.";
        break;
    default:
        break;
    }
    return report;
}

Report securityReport(const HTTPFailure& failure) {
    // OpenSSL's texts for a peer with other versions or ciphers, and for one that does not speak TLS.
    constexpr std::string_view signs[] = {"version", "handshake failure", "unsupported protocol",
                                          "packet length"};
    const bool isUnsupported = std::any_of(std::begin(signs), std::end(signs), [&](std::string_view sign) {
        return failure.reason.find(sign) != std::string::npos;
    });
    return {URLErrorCode::secureConnectionFailed,
            format("The secure connection to %@ failed", peerIn(failure)), failure.reason,
            isUnsupported ? "Check that TLS 1.2 or later is supported at this address."
                          : tryAgain(peerIn(failure))};
}

Report lossReport(const HTTPFailure& failure) {
    if (failure.isClientCertificateRequested)
        return {URLErrorCode::clientCertificateRequired,
                format("A client certificate is required by %@", peerIn(failure)), "",
                "Client certificates are not supported; use an address that needs none."};
    if (failure.refusedTunnel != 0)
        return {URLErrorCode::cannotConnectToHost,
                format("The connection to %@ was refused by %@", failure.host, proxyIn(failure)),
                format("status %d", failure.refusedTunnel),
                "Ask the operator of the proxy whether it permits and reaches this server."};
    if (failure.isSecuring)
        return securityReport(failure);
    const std::string route =
        failure.proxy ? format("%@ through %@", failure.host, proxyIn(failure)) : failure.host;
    return {URLErrorCode::networkConnectionLost, format("The connection to %@ was lost", route),
            failure.reason,
            (failure.isHeadMissing && failure.hasBody
                 ? "The request may have been rejected, for example because of its size or "
                   "its key. "
                 : "") +
                tryAgain(failure.host)};
}

Report reportOf(const HTTPFailure& failure) {
    const std::string& host = failure.host;
    switch (failure.result) {
    case CURLE_URL_MALFORMAT:
        return {URLErrorCode::badURL, format("The address of %@ is invalid", host), failure.reason,
                "Check the address."};
    case CURLE_COULDNT_RESOLVE_HOST:
        return {URLErrorCode::cannotFindHost, format("The host %@ was not found", host), failure.reason,
                "Check the address and the network."};
    case CURLE_COULDNT_RESOLVE_PROXY:
        return {URLErrorCode::cannotFindHost, format("The host of %@ was not found", proxyIn(failure)),
                failure.reason, "Check the environment variable and the network."};
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
        return connectionReport(failure);
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
        return {URLErrorCode::badServerResponse, format("%@ sent no valid HTTP answer", host), failure.reason,
                "Check that the address leads to the right server."};
    case CURLE_FILESIZE_EXCEEDED:
        return {URLErrorCode::dataLengthExceedsMaximum, format("The exchange with %@ was ended", host),
                failure.reason, "Ask the server's operator."};
    case CURLE_BAD_CONTENT_ENCODING:
        return {URLErrorCode::cannotDecodeContentData,
                format("The compressed answer of %@ could not be decoded", host), failure.reason,
                tryAgain(host)};
    case CURLE_PEER_FAILED_VERIFICATION:
        return certificateReport(failure);
    case CURLE_SSL_CLIENTCERT:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_SHUTDOWN_FAILED:
        return failure.isClientCertificateRequested ? lossReport(failure) : securityReport(failure);
    case CURLE_OK:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
        return lossReport(failure);
    default:
        return {URLErrorCode::unknown, format("The exchange with %@ failed", host), failure.reason,
                "Try again."};
    }
}

} // namespace

std::optional<HTTPProxy> proxyInLog(std::string_view line) {
    constexpr std::string_view start = "Uses proxy env variable ";
    if (!line.starts_with(start))
        return std::nullopt;
    line.remove_prefix(start.size());
    const std::string_view variable = line.substr(0, line.find(' '));
    const std::size_t quote = std::min(line.find('\''), line.size() - 1);
    const std::string address(line.substr(quote + 1, line.rfind('\'') - quote - 1));
    if (equalIgnoringCase(variable, "no_proxy"))
        return std::nullopt;
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
    const std::string reason = report.reason.empty() ? "" : ": " + report.reason;
    return urlError(report.code, format("%@%@. %@", report.what, reason, report.advice));
}

} // namespace platform
