#pragma once

#include "platform/foundation/Error.h"
#include "platform/urlloading/URLRequest.h"
#include "platform/urlloading/URLResponse.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// HTTP and HTTPS exchanges: HTTP/1.1, or HTTP/2 where a server offers it over TLS, each exchange over a
/// connection of its own.
///
/// - No redirect is followed; a redirect's status is the answer.
/// - No credentials are sent to a server, not even those in a URL.
/// - Only gzip is asked for, and such an answer arrives decoded. One that is damaged, ends early or is in
///   another coding fails with cannotDecodeContentData; what was decoded before stays.
/// - TLS 1.2 or later; certificates are always verified against the system's store and, additionally, the
///   file that the environment variable SSL_CERT_FILE names. Proxies come from the environment (http_proxy,
///   https_proxy, all_proxy, no_proxy).
/// - What fails is an Error in urlErrorDomain with the platform's codes; its description names the host and
///   the reason.
namespace platform {

inline constexpr std::string_view urlErrorDomain = "NSURLErrorDomain";

/// Codes of urlErrorDomain, with the values that the platform's users know.
enum class URLErrorCode : std::int64_t {
    unknown = -1,
    badURL = -1000,
    timedOut = -1001,
    unsupportedURL = -1002,
    cannotFindHost = -1003,
    cannotConnectToHost = -1004,
    networkConnectionLost = -1005,
    badServerResponse = -1011,
    cannotDecodeContentData = -1016,
    dataLengthExceedsMaximum = -1103,
    secureConnectionFailed = -1200,
    serverCertificateHasBadDate = -1201,
    serverCertificateUntrusted = -1202,
    serverCertificateNotYetValid = -1204,
    clientCertificateRequired = -1206,
};

/// What the transport is about to evaluate: whether the certificate chain of `host` is to be trusted.
struct ServerTrust {
    std::string host;
};

/// Where a server or a proxy asks for authentication.
struct URLProtectionSpace {
    enum class Method { serverTrust, clientCertificate, basic, digest, ntlm, negotiate };

    std::string host;
    std::uint16_t port = 0;
    Method authenticationMethod = Method::serverTrust;
    bool isProxy = false;
    /// Only for Method::serverTrust.
    std::optional<ServerTrust> serverTrust;
};

class URLConnection;

/// Receives the events of one connection. All operations run on the main thread, inside the main run loop, in
/// this order: protection spaces, at most one response, any number of data, and at the end either
/// didFailWithError or didFinishLoading. Nothing is called after `cancel`.
class URLConnectionDelegate {
public:
    virtual ~URLConnectionDelegate() = default;

    virtual void didReceiveResponse(URLConnection& connection, const URLResponse& response) = 0;
    virtual void didReceiveData(URLConnection& connection, const Data& data) = 0;
    virtual void didFailWithError(URLConnection& connection, const std::optional<Error>& error) = 0;
    virtual void didFinishLoading(URLConnection& connection) = 0;

    /// Whether the connection may authenticate against the space. Server-trust spaces are asked for before
    /// each TLS handshake; whatever the answer, the certificate is then evaluated in the default way. For any
    /// other space there are no credentials: unless the delegate cancels, the 401 or 407 is the answer.
    virtual bool canAuthenticateAgainstProtectionSpace(URLConnection& connection,
                                                       const URLProtectionSpace& space) = 0;
};

/// One asynchronous exchange. It makes progress only while the main run loop runs.
class URLConnection {
public:
    /// Does not start. Keeps `delegate` alive until the exchange has ended or was cancelled.
    URLConnection(URLRequest request, std::shared_ptr<URLConnectionDelegate> delegate);
    /// Cancels.
    ~URLConnection();
    URLConnection(const URLConnection&) = delete;
    URLConnection& operator=(const URLConnection&) = delete;

    /// Any thread; once.
    void start();

    /// Ends the exchange without another delegate operation. Any thread; on another than the main thread an
    /// operation that has begun may still be running when this returns.
    void cancel();

    /// What a synchronous exchange gave. All three may be there: a failure keeps what had arrived before.
    struct SynchronousResult {
        std::optional<URLResponse> response;
        std::optional<Data> data;
        std::optional<Error> error;
    };

    /// Sends and waits, on the calling thread and without a run loop, until the exchange has ended. No
    /// protection space is asked for; a 401 or 407 is simply the answer.
    static SynchronousResult sendSynchronousRequest(const URLRequest& request);

private:
    class Loader;
    std::shared_ptr<Loader> _loader;
};

} // namespace platform
