#include "platform/urlloading/linux/HTTPExchange.h"

#include "platform/foundation/Format.h"
#include "platform/urlloading/linux/HTTPChallenge.h"
#include "platform/urlloading/linux/TrustedCertificates.h"
#include "platform/urlloading/linux/UnreadAnswer.h"

#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <charconv>
#include <system_error>
#include <vector>

namespace platform {

/// The functions that libcurl and OpenSSL call, named after the options that set them. An exception must not
/// pass through their C code: it ends the exchange.
struct HTTPExchange::Callbacks {
    template <class R, class Step>
    static R guarded(void* exchange, R failed, Step step) {
        auto& self = *static_cast<HTTPExchange*>(exchange);
        try {
            return step(self);
        } catch (...) {
            // The error is made later: its text needs memory, which may be lacking now.
            if (!self._exception)
                self._exception = std::current_exception();
        }
        return failed;
    }

    static std::size_t headerFunction(char* bytes, std::size_t, std::size_t count, void* exchange) {
        return guarded(exchange, std::size_t(0), [&](HTTPExchange& self) {
            // An answer before the request is sent is that of a proxy about the tunnel.
            const bool isHead =
                self._answer.addLine({bytes, count}) && self._progress.phase >= Phase::sending;
            return !isHead || self.beginAnswer() ? count : 0;
        });
    }
    static std::size_t writeFunction(char* bytes, std::size_t, std::size_t count, void* exchange) {
        return guarded(exchange, std::size_t(0), [&](HTTPExchange& self) {
            self._answer.addBody({bytes, count});
            return count;
        });
    }
    static std::size_t readFunction(char* buffer, std::size_t, std::size_t capacity, void* exchange) {
        auto& self = *static_cast<HTTPExchange*>(exchange);
        const std::size_t count = self._body ? self._body->read(buffer, capacity) : 0;
        if (self._progress.phase == Phase::sending && self._body->isAtEnd())
            self._progress.phase = Phase::waiting;
        return count;
    }
    static curl_socket_t openSocketFunction(void* exchange, curlsocktype, curl_sockaddr* address) {
        return guarded(exchange, curl_socket_t(CURL_SOCKET_BAD), [&](HTTPExchange& self) {
            std::vector<curl_socket_t>& sockets = self._progress.sockets;
            sockets.reserve(sockets.size() + 1);
            const int made = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
            if (made < 0)
                return CURL_SOCKET_BAD;
            sockets.push_back(made);
            if (self._progress.phase == Phase::resolving)
                self.enter(Phase::connecting);
            return made;
        });
    }
    static int closeSocketFunction(void* exchange, curl_socket_t socket) {
        std::erase(static_cast<HTTPExchange*>(exchange)->_progress.sockets, socket);
        return ::close(socket);
    }
    static CURLcode sslCtxFunction(CURL*, void* sslContext, void* exchange) {
        return guarded(exchange, CURLE_ABORTED_BY_CALLBACK, [&](HTTPExchange& self) {
            return self.startSecuring(sslContext) ? CURLE_OK : CURLE_ABORTED_BY_CALLBACK;
        });
    }
    // OpenSSL: the server asks for a client certificate. Returning 0 continues without one.
    static int clientCertificate(SSL* ssl, X509**, EVP_PKEY**) {
        void* const exchange = SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl));
        return guarded(exchange, 0, [](HTTPExchange& self) {
            self._isClientCertificateRequested = true;
            self.askListener(URLProtectionSpace::Method::clientCertificate, self.isSecuringProxy());
            return 0;
        });
    }
    static int prereqFunction(void* exchange, char*, char*, int, int) {
        auto& self = *static_cast<HTTPExchange*>(exchange);
        self._progress.phase = self._body && !self._body->isAtEnd() ? Phase::sending : Phase::waiting;
        // OpenSSL continues after clientCertificate, and libcurl after debugFunction, whatever they return.
        return self._isAbandoned || self._exception ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
    }
    // libcurl calls this also when sending has failed, before it closes the connection.
    static int xferInfoFunction(void* exchange, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
        return guarded(exchange, 1, [](HTTPExchange& self) {
            if (*self._handle.reason() != '\0')
                self.readUnreadAnswer();
            return 0;
        });
    }
    // Only libcurl's log says which proxy it takes from the environment.
    static int debugFunction(CURL*, curl_infotype kind, char* text, std::size_t count, void* exchange) {
        return guarded(exchange, 0, [&](HTTPExchange& self) {
            if (auto proxy = kind == CURLINFO_TEXT ? proxyInLog({text, count}) : std::nullopt)
                self._proxy = std::move(proxy);
            return 0;
        });
    }
};

Result<std::unique_ptr<HTTPExchange>> HTTPExchange::make(const URLRequest& request,
                                                         HTTPExchangeListener& listener) {
    if (auto error = refusal(request))
        return *std::move(error);
    std::unique_ptr<HTTPExchange> exchange(new HTTPExchange(request, listener));
    if (exchange->_handle.result() != CURLE_OK)
        return *exchange->errorFor(exchange->_handle.result());
    return exchange;
}

HTTPExchange::HTTPExchange(const URLRequest& request, HTTPExchangeListener& listener)
    : _request(request), _listener(listener), _host(shownHost(request.url)), _answer(request, listener),
      _progress(request.timeoutInterval, Clock::now()), _handle(request) {
    if (request.body)
        _body.emplace(*request.body);
    setCallbacks();
    enter(Phase::resolving);
}

void HTTPExchange::setCallbacks() {
    const auto setCallback = [this](CURLoption function, auto* callback, CURLoption data) {
        _handle.set(function, callback);
        _handle.set(data, static_cast<void*>(this));
    };
    setCallback(CURLOPT_HEADERFUNCTION, &Callbacks::headerFunction, CURLOPT_HEADERDATA);
    setCallback(CURLOPT_WRITEFUNCTION, &Callbacks::writeFunction, CURLOPT_WRITEDATA);
    setCallback(CURLOPT_READFUNCTION, &Callbacks::readFunction, CURLOPT_READDATA);
    setCallback(CURLOPT_OPENSOCKETFUNCTION, &Callbacks::openSocketFunction, CURLOPT_OPENSOCKETDATA);
    setCallback(CURLOPT_CLOSESOCKETFUNCTION, &Callbacks::closeSocketFunction, CURLOPT_CLOSESOCKETDATA);
    setCallback(CURLOPT_SSL_CTX_FUNCTION, &Callbacks::sslCtxFunction, CURLOPT_SSL_CTX_DATA);
    setCallback(CURLOPT_PREREQFUNCTION, &Callbacks::prereqFunction, CURLOPT_PREREQDATA);
    setCallback(CURLOPT_XFERINFOFUNCTION, &Callbacks::xferInfoFunction, CURLOPT_XFERINFODATA);
    _handle.set(CURLOPT_NOPROGRESS, 0L);
    setCallback(CURLOPT_DEBUGFUNCTION, &Callbacks::debugFunction, CURLOPT_DEBUGDATA);
    _handle.set(CURLOPT_VERBOSE, 1L);
}

/// Sets a phase before Phase::sending, and libcurl's time limit for that phase.
void HTTPExchange::enter(Phase phase) {
    _progress.phase = phase;
    _handle.set(CURLOPT_CONNECTTIMEOUT_MS, _progress.connectTimeout());
}

bool HTTPExchange::startSecuring(void* sslContext) {
    enter(Phase::securing);
    ++_handshakes;
    auto* const context = static_cast<SSL_CTX*>(sslContext);
    SSL_CTX_set_app_data(context, this);
    SSL_CTX_set_client_cert_cb(context, &Callbacks::clientCertificate);
    if (const Outcome trusted = trustCertificateAuthorities(context, _host); !trusted) {
        _trustError = trusted.error();
        return false;
    }
    return askListener(URLProtectionSpace::Method::serverTrust, isSecuringProxy());
}

/// An https:// proxy is the peer of the first handshake.
bool HTTPExchange::isSecuringProxy() const {
    return _progress.phase == Phase::securing && _handshakes == 1 && _proxy && _proxy->url &&
           _proxy->url->scheme() == "https";
}

/// Asks the listener about a protection space; false when the exchange must end.
bool HTTPExchange::askListener(URLProtectionSpace::Method method, bool isProxy) {
    const URL& url = isProxy && _proxy && _proxy->url ? *_proxy->url : *_request.url;
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

bool HTTPExchange::beginAnswer() {
    _progress.phase = Phase::receiving;
    const HTTPResponseHead& head = _answer.head();
    const auto challenge = challengeMethod(head);
    if (challenge && !askListener(*challenge, head.statusCode == 407))
        return false;
    _answer.beginBody();
    return true;
}

/// If the server has answered and reset the connection while libcurl was about to send, libcurl reports only
/// that it cannot send.
void HTTPExchange::readUnreadAnswer() {
    if (_progress.phase < Phase::sending || _answer.hasHead() || _progress.sockets.size() != 1)
        return;
    const auto* const tls = _handle.info<curl_tlssessioninfo*>(CURLINFO_TLS_SSL_PTR);
    const std::string bytes =
        takeUnreadAnswer(_progress.sockets.front(), tls ? static_cast<SSL*>(tls->internals) : nullptr);
    std::string_view rest = bytes;
    // libcurl may have read the beginning of the answer.
    if (!rest.starts_with("HTTP/1."))
        return;
    while (!_answer.hasHead()) {
        const std::size_t end = rest.find('\n');
        if (end == std::string_view::npos || (_answer.addLine(rest.substr(0, end)) && !beginAnswer()))
            return;
        rest.remove_prefix(end + 1);
    }
    // Without this header the end of the body is unknown, so that the answer counts as truncated.
    const auto length = _answer.head().allHeaderFields.find("Content-Length");
    std::size_t size = 0;
    if (length == _answer.head().allHeaderFields.end() ||
        std::from_chars(length->second.data(), length->second.data() + length->second.size(), size).ec !=
            std::errc())
        return;
    _answer.addBody(rest.substr(0, size));
    _isEarlyAnswer = size <= rest.size();
}

bool HTTPExchange::checkForStall(Clock::time_point now) {
    // The time that a name look-up takes is not time for connecting.
    if (_progress.phase == Phase::resolving)
        enter(Phase::resolving);
    return _progress.isStalled(now);
}

void HTTPExchange::end(CURLcode result) {
    // A proxy that asks for authentication before it opens a tunnel has answered; the exchange did not fail.
    const bool hasAnswer = isTunnelRefused() && beginAnswer();
    _listener.didEnd(hasAnswer ? std::nullopt : errorFor(result));
}

bool HTTPExchange::isTunnelRefused() const {
    return !_exception && !_trustError && _progress.phase < Phase::sending &&
           _answer.head().statusCode == 407;
}

/// Why the exchange failed; nothing when it succeeded.
std::optional<Error> HTTPExchange::errorFor(CURLcode result) const {
    if (_exception)
        return exceptionError();
    if (_trustError)
        return _trustError;
    if (_isEarlyAnswer)
        result = CURLE_OK;
    if (_handle.result() != CURLE_OK)
        result = _handle.result();
    if (result == CURLE_OK && _answer.isTruncated())
        return errorOf(failure(CURLE_BAD_CONTENT_ENCODING, "the compressed data is truncated"));
    if (result == CURLE_OK && _answer.hasHead())
        return std::nullopt;
    if (result == CURLE_OPERATION_TIMEDOUT)
        return _progress.stallError(_host);
    std::string reason = _handle.reason();
    const long systemError = _handle.info<long>(CURLINFO_OS_ERRNO);
    if (result == CURLE_COULDNT_CONNECT && systemError != 0)
        reason += format(" (%@)", std::generic_category().message(static_cast<int>(systemError)));
    return errorOf(failure(result, std::move(reason)));
}

/// The error of the first exception in a callback.
Error HTTPExchange::exceptionError() const {
    try {
        std::rethrow_exception(_exception);
    } catch (const AnswerRefusal& refusal) {
        return errorOf(failure(refusal.result, refusal.reason));
    } catch (const std::exception& exception) {
        return errorOf(failure(CURLE_ABORTED_BY_CALLBACK, exception.what()));
    }
}

HTTPFailure HTTPExchange::failure(CURLcode result, std::string reason) const {
    const bool isHeadMissing = !_answer.hasHead() && _progress.phase >= Phase::sending;
    const bool hasTunnelAnswer = _progress.phase < Phase::sending && _answer.head().statusCode >= 300;
    return {.result = result,
            .reason = std::move(reason),
            .host = _host,
            .proxy = _proxy,
            .refusedTunnel = hasTunnelAnswer ? _answer.head().statusCode : 0,
            .verification = _handle.info<long>(isSecuringProxy() ? CURLINFO_PROXY_SSL_VERIFYRESULT
                                                                 : CURLINFO_SSL_VERIFYRESULT),
            .isHeadMissing = isHeadMissing,
            .hasBody = _body.has_value(),
            .isSecuring = _progress.phase == Phase::securing,
            .isSecuringProxy = isSecuringProxy(),
            .isClientCertificateRequested = _isClientCertificateRequested && !_answer.hasHead()};
}

} // namespace platform
