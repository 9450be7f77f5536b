#include "platform/urlloading/linux/HTTPExchange.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"
#include "platform/urlloading/linux/HTTPChallenge.h"
#include "platform/urlloading/linux/HTTPFailure.h"
#include "platform/urlloading/linux/TrustedCertificates.h"

#include <fcntl.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <functional>
#include <system_error>

namespace platform {
namespace {

// Large buffers need fewer turns of the transfer loop for a long body.
constexpr long uploadBufferSize = 128L * 1024;
constexpr long receiveBufferSize = 128L * 1024;

/// libcurl's global set-up, which it needs once before any other call.
CURLcode setUpLibrary() {
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    return result;
}

/// The number of bytes that the peer of a TCP socket has acknowledged plus the number that it has sent; 0 for
/// any other socket. Bytes that wait in the send buffer are not progress.
std::uint64_t bytesMovedThroughSocket(curl_socket_t socket) {
    tcp_info info = {};
    socklen_t size = sizeof info;
    if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
        return 0;
    return info.tcpi_bytes_acked + info.tcpi_bytes_received;
}

} // namespace

/// The functions that libcurl and OpenSSL call. An exception must not pass through their C code: it ends the
/// exchange with its message.
struct HTTPExchange::Callbacks {
    template <class R, class Step>
    static R guarded(void* exchange, R failed, Step step) {
        auto& self = *static_cast<HTTPExchange*>(exchange);
        try {
            return step(self);
        } catch (const std::exception& exception) {
            self.failInCallback(exception.what(), URLErrorCode::unknown);
            return failed;
        }
    }

    static std::size_t head(char* bytes, std::size_t, std::size_t count, void* exchange) {
        return guarded(exchange, std::size_t(0), [&](HTTPExchange& self) {
            return self.receiveHeadLine({bytes, count}) ? count : 0;
        });
    }
    static std::size_t body(char* bytes, std::size_t, std::size_t count, void* exchange) {
        return guarded(exchange, std::size_t(0), [&](HTTPExchange& self) {
            return self.receiveBody({bytes, count}) ? count : 0;
        });
    }
    static std::size_t read(char* buffer, std::size_t, std::size_t capacity, void* exchange) {
        return static_cast<HTTPExchange*>(exchange)->readBody(buffer, capacity);
    }
    static int seek(void* exchange, curl_off_t offset, int origin) {
        if (origin != SEEK_SET || offset < 0)
            return CURL_SEEKFUNC_CANTSEEK;
        if (auto& body = static_cast<HTTPExchange*>(exchange)->_requestBody)
            body->seek(static_cast<std::uint64_t>(offset));
        return CURL_SEEKFUNC_OK;
    }
    static curl_socket_t open(void* exchange, curlsocktype, curl_sockaddr* address) {
        return guarded(exchange, curl_socket_t(CURL_SOCKET_BAD), [&](HTTPExchange& self) {
            self._sockets.reserve(self._sockets.size() + 1);
            const int made = ::socket(address->family, address->socktype, address->protocol);
            if (made < 0 || fcntl(made, F_SETFD, FD_CLOEXEC) != 0)
                return made;
            self._sockets.push_back(made);
            if (self._phase == Phase::resolving) {
                self._phase = Phase::connecting;
                self.setConnectTimeout(self._request.timeoutInterval);
            }
            return made;
        });
    }
    static int close(void* exchange, curl_socket_t socket) {
        std::erase(static_cast<HTTPExchange*>(exchange)->_sockets, socket);
        return ::close(socket);
    }
    static CURLcode secure(CURL*, void* sslContext, void* exchange) {
        return guarded(exchange, CURLE_ABORTED_BY_CALLBACK, [&](HTTPExchange& self) {
            return self.startSecuring(sslContext) ? CURLE_OK : CURLE_ABORTED_BY_CALLBACK;
        });
    }
    // The server asks for a client certificate. Returning 0 continues without one.
    static int clientCertificate(SSL* ssl, X509**, EVP_PKEY**) {
        void* const exchange = SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl));
        return guarded(exchange, 0, [](HTTPExchange& self) {
            self._isClientCertificateRequested = true;
            self.askListener(URLProtectionSpace::Method::clientCertificate);
            return 0;
        });
    }
    static int send(void* exchange, char*, char*, int, int) {
        auto& self = *static_cast<HTTPExchange*>(exchange);
        const bool hasBody = self._request.body && self._request.body->size() > 0;
        self._phase = hasBody ? Phase::sending : Phase::waiting;
        return self._isAbandoned ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
    }
    // libcurl drops bytes after the announced end of an answer; only this callback sees them.
    static int debug(CURL*, curl_infotype kind, char*, std::size_t count, void* exchange) {
        if (kind == CURLINFO_DATA_IN)
            static_cast<HTTPExchange*>(exchange)->_bodyBytes += static_cast<std::int64_t>(count);
        return 0;
    }
};

Result<std::unique_ptr<HTTPExchange>> HTTPExchange::make(const URLRequest& request,
                                                         HTTPExchangeListener& listener) {
    if (auto error = refusal(request))
        return *std::move(error);
    std::unique_ptr<HTTPExchange> exchange(new HTTPExchange(request, listener));
    if (exchange->_setUpResult != CURLE_OK)
        return errorOf({.result = exchange->_setUpResult, .reason = ""}, exchange->_host);
    return exchange;
}

HTTPExchange::HTTPExchange(const URLRequest& request, HTTPExchangeListener& listener)
    : _request(request), _listener(listener), _host(shownHost(request.url)), _setUpResult(setUpLibrary()),
      _easy(curl_easy_init(), &curl_easy_cleanup) {
    if (request.body)
        _requestBody.emplace(*request.body);
    if (!_easy && _setUpResult == CURLE_OK)
        _setUpResult = CURLE_FAILED_INIT;
    setUpTransport();
    setUpRequest();
    setUpHeaders();
    setUpCallbacks();
}

template <class T>
void HTTPExchange::set(CURLoption option, T value) {
    if (_setUpResult == CURLE_OK)
        _setUpResult = curl_easy_setopt(_easy.get(), option, value);
}

void HTTPExchange::setUpTransport() {
    set(CURLOPT_NOSIGNAL, 1L);
    // When the exchange ends, do not wait for a resolver thread that hangs.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    // Over HTTP/2, libcurl drops an answer that the server sends before it has read the whole body.
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    // The callback `secure` loads the trusted certificates for each connection.
    set(CURLOPT_CA_CACHE_TIMEOUT, 0L);
    for (const CURLoption option :
         {CURLOPT_CAINFO, CURLOPT_CAPATH, CURLOPT_PROXY_CAINFO, CURLOPT_PROXY_CAPATH})
        set(option, static_cast<const char*>(nullptr));
    // Gzip is decoded here, because libcurl does not report truncated gzip data.
    set(CURLOPT_ACCEPT_ENCODING, "gzip");
    set(CURLOPT_HTTP_CONTENT_DECODING, 0L);
    // No connection is shared, so the bytes moved through the sockets measure this exchange alone.
    set(CURLOPT_FRESH_CONNECT, 1L);
    set(CURLOPT_FORBID_REUSE, 1L);
    set(CURLOPT_UPLOAD_BUFFERSIZE, uploadBufferSize);
    set(CURLOPT_BUFFERSIZE, receiveBufferSize);
    set(CURLOPT_ERRORBUFFER, static_cast<char*>(_reason));
    setConnectTimeout(_request.timeoutInterval);
}

void HTTPExchange::setUpRequest() {
    set(CURLOPT_URL, _request.url->absoluteString().c_str());
    set(CURLOPT_PATH_AS_IS, 1L);
    // Do not send a name and password that the URL contains.
    set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_NONE));
    const std::string& method = _request.method;
    if (method == "HEAD")
        return set(CURLOPT_NOBODY, 1L);
    if (_request.body || method == "POST" || method == "PUT" || method == "PATCH") {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(_request.body ? _request.body->size() : 0));
    }
    set(CURLOPT_CUSTOMREQUEST, method.c_str());
}

void HTTPExchange::setUpHeaders() {
    // "Name:" removes a header that libcurl would add; "Name;" sends one with an empty value.
    if (!_request.headers.contains("Expect"))
        addHeaderLine("Expect:");
    if (!_request.headers.contains("Content-Type"))
        addHeaderLine("Content-Type:");
    for (const auto& [name, value] : _request.headers) {
        if (equalIgnoringCase(name, "Content-Length") || equalIgnoringCase(name, "Transfer-Encoding"))
            continue;
        const std::string_view text = trimmed(value, httpBlanks);
        addHeaderLine(text.empty() ? name + ";" : format("%@: %@", name, text));
    }
    set(CURLOPT_HTTPHEADER, _headerList.get());
}

void HTTPExchange::addHeaderLine(const std::string& line) {
    if (curl_slist* const longer = curl_slist_append(_headerList.get(), line.c_str())) {
        static_cast<void>(_headerList.release());
        _headerList.reset(longer);
    } else {
        _setUpResult = CURLE_OUT_OF_MEMORY;
    }
}

void HTTPExchange::setUpCallbacks() {
    const auto setCallback = [this](CURLoption function, auto* callback, CURLoption data) {
        set(function, callback);
        set(data, static_cast<void*>(this));
    };
    setCallback(CURLOPT_HEADERFUNCTION, &Callbacks::head, CURLOPT_HEADERDATA);
    setCallback(CURLOPT_WRITEFUNCTION, &Callbacks::body, CURLOPT_WRITEDATA);
    setCallback(CURLOPT_READFUNCTION, &Callbacks::read, CURLOPT_READDATA);
    setCallback(CURLOPT_SEEKFUNCTION, &Callbacks::seek, CURLOPT_SEEKDATA);
    setCallback(CURLOPT_OPENSOCKETFUNCTION, &Callbacks::open, CURLOPT_OPENSOCKETDATA);
    setCallback(CURLOPT_CLOSESOCKETFUNCTION, &Callbacks::close, CURLOPT_CLOSESOCKETDATA);
    setCallback(CURLOPT_SSL_CTX_FUNCTION, &Callbacks::secure, CURLOPT_SSL_CTX_DATA);
    setCallback(CURLOPT_PREREQFUNCTION, &Callbacks::send, CURLOPT_PREREQDATA);
    setCallback(CURLOPT_DEBUGFUNCTION, &Callbacks::debug, CURLOPT_DEBUGDATA);
    set(CURLOPT_VERBOSE, 1L);
}

/// Allows `time` from now for connecting. libcurl counts from the start of the exchange, and divides the time
/// among the addresses of the host.
void HTTPExchange::setConnectTimeout(std::chrono::milliseconds time) {
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - _started);
    set(CURLOPT_CONNECTTIMEOUT_MS,
        static_cast<long>(std::clamp<std::int64_t>((elapsed + time).count(), 1, INT_MAX)));
}

bool HTTPExchange::startSecuring(void* sslContext) {
    _phase = Phase::securing;
    setConnectTimeout(std::chrono::hours(24));
    auto* const context = static_cast<SSL_CTX*>(sslContext);
    SSL_CTX_set_app_data(context, this);
    SSL_CTX_set_client_cert_cb(context, &Callbacks::clientCertificate);
    if (const Outcome trusted = trustCertificateAuthorities(context, _host); !trusted) {
        _callbackError = trusted.error();
        return false;
    }
    return askListener(URLProtectionSpace::Method::serverTrust);
}

/// Asks the listener about a protection space; false when the exchange must end.
bool HTTPExchange::askListener(URLProtectionSpace::Method method, bool isProxy) {
    const URL& url = *_request.url;
    URLProtectionSpace space{.host = url.host(),
                             .port = url.port().value_or(url.scheme() == "https" ? 443 : 80),
                             .authenticationMethod = method,
                             .isProxy = isProxy,
                             .serverTrust = std::nullopt};
    if (method == URLProtectionSpace::Method::serverTrust)
        space.serverTrust = ServerTrust{url.host()};
    if (!_listener.mayContinue(space))
        _isAbandoned = true;
    return !_isAbandoned;
}

std::size_t HTTPExchange::readBody(char* buffer, std::size_t capacity) {
    if (!_requestBody)
        return 0;
    const std::size_t count = _requestBody->read(buffer, capacity);
    if (_requestBody->isAtEnd() && _phase == Phase::sending)
        _phase = Phase::waiting;
    return count;
}

bool HTTPExchange::receiveHeadLine(std::string_view line) {
    const bool isTrailer = _headIsDone;
    const HTTPHeadParser::Result result = _heads.addLine(line);
    if (result == HTTPHeadParser::Result::tooLong) {
        failInCallback("the head of its answer is longer than 256 KiB", URLErrorCode::badServerResponse);
        return false;
    }
    return isTrailer || result == HTTPHeadParser::Result::incomplete || finishHead();
}

bool HTTPExchange::finishHead() {
    const HTTPResponseHead& head = _heads.head();
    // Before the request is sent, only a proxy answers, about the tunnel. A 1xx head is followed by another
    // one.
    if (_phase < Phase::sending || head.statusCode < 200)
        return true;
    _headIsDone = true;
    _phase = Phase::receiving;
    const auto challenge = challengeMethod(head);
    if (challenge && !askListener(*challenge, head.statusCode == 407))
        return false;
    const auto coding = head.allHeaderFields.find("Content-Encoding");
    if (coding != head.allHeaderFields.end() && !equalIgnoringCase(coding->second, "identity")) {
        _isGzip = equalIgnoringCase(coding->second, "gzip") || equalIgnoringCase(coding->second, "x-gzip");
        _gzip.emplace();
    }
    _listener.didReceiveHead(head);
    return true;
}

bool HTTPExchange::receiveBody(std::string_view bytes) {
    if (!_gzip)
        return receiveDecoded(bytes);
    if (_isGzip && _gzip->read(bytes, std::bind_front(&HTTPExchange::receiveDecoded, this)))
        return true;
    if (!_callbackError)
        _callbackError =
            undecodable(_isGzip ? "the compressed data is damaged" : "its content coding is not gzip");
    return false;
}

bool HTTPExchange::receiveDecoded(std::string_view bytes) {
    _decodedBodyBytes += bytes.size();
    if (_decodedBodyBytes > _request.answerLimit) {
        failInCallback(format("its answer is longer than %@ bytes; ask the server's operator",
                              std::to_string(_request.answerLimit)),
                       URLErrorCode::dataLengthExceedsMaximum);
        return false;
    }
    _listener.didReceiveBody(bytes);
    return true;
}

Error HTTPExchange::undecodable(std::string reason) const {
    return errorOf({.result = CURLE_BAD_CONTENT_ENCODING, .reason = std::move(reason)}, _host);
}

bool HTTPExchange::checkForStall(Clock::time_point now) {
    // This is called for each part of a body, and each socket costs a system call.
    if (!_stall.isDue(now))
        return false;
    std::uint64_t moved = 0;
    for (const curl_socket_t socket : _sockets)
        moved += bytesMovedThroughSocket(socket);
    // The time that a name look-up takes is not time for connecting.
    if (_phase == Phase::resolving)
        setConnectTimeout(_request.timeoutInterval);
    return _stall.recordProgress(now, static_cast<int>(_phase), moved);
}

void HTTPExchange::end(CURLcode result) {
    if (!isTunnelRefused())
        return _listener.didEnd(errorFor(result));
    // A proxy that asks for authentication before it opens a tunnel has answered; the exchange did not fail.
    _phase = Phase::waiting;
    finishHead();
    _listener.didEnd(std::nullopt);
}

bool HTTPExchange::isTunnelRefused() const {
    return !_callbackError && !_headIsDone && _phase < Phase::sending && _heads.head().statusCode == 407;
}

Error HTTPExchange::stallError() const {
    constexpr std::array phases = {"looking up the host's name", "connecting",
                                   "securing the connection",    "sending the request",
                                   "waiting for the answer",     "receiving the answer"};
    const std::int64_t milliseconds = _request.timeoutInterval.count();
    const std::string time = milliseconds % 1000 == 0 ? format("%d seconds", milliseconds / 1000)
                                                      : format("%d milliseconds", milliseconds);
    return urlError(URLErrorCode::timedOut,
                    format("The exchange with %@ made no progress for %@ while %@. Check the network and the "
                           "server, then try again.",
                           _host, time, phases.at(static_cast<std::size_t>(_phase))));
}

/// Why the exchange failed; nothing when it succeeded.
std::optional<Error> HTTPExchange::errorFor(CURLcode result) const {
    if (_callbackError)
        return _callbackError;
    if (result == CURLE_OK && isLongerThanAnnounced())
        return urlError(
            URLErrorCode::badServerResponse,
            format("The answer of %@ is longer than its head announces; the rest was dropped. Ask the "
                   "server's operator.",
                   _host));
    if (result == CURLE_OK && _gzip && !_gzip->isComplete())
        return undecodable("the compressed data is truncated");
    if (result == CURLE_OK && _headIsDone)
        return std::nullopt;
    if (result == CURLE_OPERATION_TIMEDOUT)
        return stallError();
    HTTPFailure failure{.result = result,
                        .reason = _reason,
                        .isHeadMissing = !_headIsDone && _phase >= Phase::sending,
                        .isSecuring = _phase == Phase::securing,
                        .isClientCertificateRequested = _isClientCertificateRequested && !_headIsDone};
    long systemError = 0;
    if (curl_easy_getinfo(_easy.get(), CURLINFO_OS_ERRNO, &systemError) == CURLE_OK && systemError != 0 &&
        result == CURLE_COULDNT_CONNECT)
        failure.reason += format(" (%@)", std::generic_category().message(static_cast<int>(systemError)));
    if (curl_easy_getinfo(_easy.get(), CURLINFO_SSL_VERIFYRESULT, &failure.verification) != CURLE_OK)
        failure.verification = 0;
    return errorOf(failure, _host);
}

bool HTTPExchange::isLongerThanAnnounced() const {
    curl_off_t announced = -1;
    return _request.method != "HEAD" &&
           curl_easy_getinfo(_easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced) == CURLE_OK &&
           announced >= 0 && _bodyBytes > announced;
}

void HTTPExchange::failInCallback(const std::string& reason, URLErrorCode code) {
    if (!_callbackError)
        _callbackError = urlError(code, format("The exchange with %@ was ended: %@.", _host, reason));
}

} // namespace platform
