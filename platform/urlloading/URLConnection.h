#pragma once

#include "platform/foundation/Error.h"
#include "platform/urlloading/URLRequest.h"
#include "platform/urlloading/URLResponse.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// HTTP and HTTPS exchanges by HTTP/1.1. Each exchange has a connection of its own.
///
/// - Redirects are not followed: the redirect is the answer.
/// - No credentials are sent, not even those in a URL.
/// - Answers may be compressed by gzip and are decoded. A compressed answer that is damaged, truncated or in
///   another coding fails with cannotDecodeContentData; the bytes that were decoded before are kept.
/// - A truncated answer fails with networkConnectionLost; the bytes received before are kept. Bytes that
///   follow a complete answer are ignored.
/// - A server may answer before it has read the whole request. That answer is reported even if the rest of
///   the request could not be sent. If the server then resets the connection and the answer has no
///   Content-Length, its head is reported with networkConnectionLost.
/// - TLS 1.2 or later. Certificates are always verified against the system's store. On Linux, the file that
///   SSL_CERT_FILE names and the folders that SSL_CERT_DIR names are trusted too, and the environment
///   variables http_proxy, https_proxy, all_proxy and no_proxy choose the proxy.
/// - Errors are in urlErrorDomain. Their descriptions name the server or the proxy, and the reason.
///
/// On macOS, NSURLConnection chooses the versions of HTTP and TLS, the content codings and the proxy, and
/// adds headers of its own. Errors that it reports are passed on unchanged.
namespace platform {

inline constexpr std::string_view urlErrorDomain = "NSURLErrorDomain";

/// The codes of urlErrorDomain, with the values of Apple's NSURLError.h.
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

/// The server whose certificate chain is about to be evaluated.
struct ServerTrust {
    std::string host;
};

/// The server or proxy that asks for authentication, and the kind of authentication.
struct URLProtectionSpace {
    enum class Method { serverTrust, clientCertificate, basic, digest, ntlm, negotiate };

    std::string host;
    std::uint16_t port = 0;
    Method authenticationMethod = Method::serverTrust;
    /// Whether the proxy asks for authentication, not the server.
    bool isProxy = false;
    /// Set for Method::serverTrust only.
    std::optional<ServerTrust> serverTrust;
};

class URLConnection;

/// Receives the events of one connection. All operations run on the main thread, inside the main run loop, in
/// this order: canAuthenticateAgainstProtectionSpace for each protection space, didReceiveResponse at most
/// once, didReceiveData any number of times, and finally either didFailWithError or
/// connectionDidFinishLoading. Nothing is called after `cancel`.
class URLConnectionDelegate {
public:
    virtual ~URLConnectionDelegate() = default;

    virtual void didReceiveResponse(URLConnection& connection, const URLResponse& response) = 0;
    virtual void didReceiveData(URLConnection& connection, const Data& data) = 0;
    virtual void didFailWithError(URLConnection& connection, const std::optional<Error>& error) = 0;
    virtual void connectionDidFinishLoading(URLConnection& connection) = 0;

    /// Whether the connection may authenticate. For server trust it is called before each TLS handshake; the
    /// certificate is verified whatever it returns. For the other methods there are no credentials: unless
    /// the delegate cancels the connection, the 401 or 407 is the answer.
    virtual bool canAuthenticateAgainstProtectionSpace(URLConnection& connection,
                                                       const URLProtectionSpace& space) = 0;
};

/// One asynchronous exchange. It makes progress only while the main run loop runs.
class URLConnection {
public:
    /// Does not start the exchange. Keeps `delegate` alive until the exchange ends or is cancelled.
    URLConnection(URLRequest request, std::shared_ptr<URLConnectionDelegate> delegate);
    /// Cancels.
    ~URLConnection();
    URLConnection(const URLConnection&) = delete;
    URLConnection& operator=(const URLConnection&) = delete;

    /// Call it once, on any thread.
    void start();

    /// Ends the exchange. The delegate is not called any more, except that a call that has begun on the main
    /// thread may still run when another thread returns from `cancel`.
    void cancel();

    /// The result of a synchronous exchange. After an error, `response` and `data` hold what was received
    /// before.
    struct SynchronousResult {
        std::optional<URLResponse> response;
        std::optional<Data> data;
        std::optional<Error> error;
    };

    /// Sends the request and waits for the end of the exchange on the calling thread, without a run loop.
    /// There is no delegate, so a 401 or 407 is the answer.
    ///
    /// On macOS, no delegate controls NSURLConnection's synchronous call, so it differs from the rules at the
    /// top of this file:
    /// - A redirect is followed. If it leads to another address, the result is discarded and reported as an
    ///   error, without a response.
    /// - Credentials of the user's keychain may be used. A 401 is reported as
    ///   NSURLErrorUserCancelledAuthentication.
    /// - The size limit is checked only after the whole answer has been read.
    /// - After an error, `data` can be null although bytes were received.
    static SynchronousResult sendSynchronousRequest(const URLRequest& request);

private:
    class Loader;
    std::shared_ptr<Loader> _loader;
};

} // namespace platform
