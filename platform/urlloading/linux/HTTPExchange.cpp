#include "platform/urlloading/linux/HTTPExchange.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/UTF8.h"
#include "platform/urlloading/linux/HTTPFailure.h"
#include "platform/urlloading/linux/SocketProgress.h"
#include "platform/urlloading/linux/TrustedCertificates.h"

#include <fcntl.h>
#include <openssl/ssl.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstring>
#include <functional>
#include <system_error>

namespace platform {
namespace {

// Large, so that a long body costs few turns of the transfer loop.
constexpr long uploadBufferSize = 128L * 1024;
constexpr long receiveBufferSize = 128L * 1024;

// All heads of one answer, interim ones and trailers included.
constexpr std::size_t headLimit = std::size_t(256) * 1024;

constexpr std::string_view blanks = " \t";

/// `bytes` as text: UTF-8 as it stands, anything else read as ISO 8859-1 (RFC 9110 section 5.5).
std::string headerText(std::string_view bytes) {
    if (auto text = decodeUTF8(bytes))
        return *std::move(text);
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
            text += c;
        else
            text += {static_cast<char>(0xC0 | byte >> 6), static_cast<char>(0x80 | (byte & 0x3F))};
    }
    return text;
}

bool equalNames(std::string_view a, std::string_view b) {
    return !HeaderNameLess()(a, b) && !HeaderNameLess()(b, a);
}

/// The first scheme of a list of challenges (RFC 9110 section 11.6.1) that is known here. A scheme is a word
/// without "=" at the start of a list element.
std::optional<URLProtectionSpace::Method> challengeMethod(std::string_view challenges) {
    using Method = URLProtectionSpace::Method;
    constexpr std::pair<std::string_view, Method> schemes[] = {{"Basic", Method::basic},
                                                               {"Digest", Method::digest},
                                                               {"NTLM", Method::ntlm},
                                                               {"Negotiate", Method::negotiate}};
    bool isQuoted = false;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= challenges.size(); ++i) {
        const char c = i < challenges.size() ? challenges[i] : ',';
        if (c == '"')
            isQuoted = !isQuoted;
        if (isQuoted && c == '\\')
            ++i;
        if (c != ',' || isQuoted)
            continue;
        const std::string_view element = trimmed(challenges.substr(start, i - start), blanks);
        const std::string_view word = element.substr(0, element.find_first_of(" \t="));
        const bool isParameter = trimmed(element.substr(word.size()), blanks).starts_with('=');
        for (const auto& [name, method] : schemes)
            if (!isParameter && equalNames(word, name))
                return method;
        start = i + 1;
    }
    return std::nullopt;
}

/// libcurl's own set-up, which must be done once before anything else of it.
CURLcode setUpLibrary() {
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    return result;
}

} // namespace

/// What the library calls back. None lets an exception out.
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
            return self.takeHeaderLine({bytes, count}) ? count : 0;
        });
    }
    static std::size_t body(char* bytes, std::size_t, std::size_t count, void* exchange) {
        return guarded(exchange, std::size_t(0), [&](HTTPExchange& self) {
            return self.takeBody({bytes, count}) ? count : 0;
        });
    }
    static std::size_t read(char* buffer, std::size_t, std::size_t capacity, void* exchange) {
        return static_cast<HTTPExchange*>(exchange)->fillFromBody(buffer, capacity);
    }
    static int seek(void* exchange, curl_off_t offset, int origin) {
        if (origin != SEEK_SET || offset < 0)
            return CURL_SEEKFUNC_CANTSEEK;
        static_cast<HTTPExchange*>(exchange)->seekBody(static_cast<std::uint64_t>(offset));
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
                self.letConnectFor(self._request.timeoutInterval);
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
    // Called when the server asks for a certificate. There is none to give, which 0 says.
    static int clientCertificate(SSL* ssl, X509**, EVP_PKEY**) {
        void* const exchange = SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl));
        return guarded(exchange, 0, [](HTTPExchange& self) {
            self._clientCertificateIsWanted = true;
            self.ask(URLProtectionSpace::Method::clientCertificate);
            return 0;
        });
    }
    static int send(void* exchange, char*, char*, int, int) {
        auto& self = *static_cast<HTTPExchange*>(exchange);
        const bool hasBody = self._request.body && self._request.body->size() > 0;
        self._phase = hasBody ? Phase::sending : Phase::waiting;
        return self._isAbandoned ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
    }
    // The only place where the library shows the bytes behind the announced end of an answer.
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
    // A resolver that hangs must not hold up the end of the exchange.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    // The callback `secure` says what is trusted, for each connection anew.
    set(CURLOPT_CA_CACHE_TIMEOUT, 0L);
    for (const CURLoption option :
         {CURLOPT_CAINFO, CURLOPT_CAPATH, CURLOPT_PROXY_CAINFO, CURLOPT_PROXY_CAPATH})
        set(option, static_cast<const char*>(nullptr));
    // Decoded here: the library does not notice when the coded bytes end early.
    set(CURLOPT_ACCEPT_ENCODING, "gzip");
    set(CURLOPT_HTTP_CONTENT_DECODING, 0L);
    // A connection of its own: its sockets, and so its progress, are those of this exchange alone.
    set(CURLOPT_FRESH_CONNECT, 1L);
    set(CURLOPT_FORBID_REUSE, 1L);
    set(CURLOPT_UPLOAD_BUFFERSIZE, uploadBufferSize);
    set(CURLOPT_BUFFERSIZE, receiveBufferSize);
    set(CURLOPT_ERRORBUFFER, static_cast<char*>(_reason));
    letConnectFor(_request.timeoutInterval);
}

void HTTPExchange::setUpRequest() {
    set(CURLOPT_URL, _request.url->absoluteString().c_str());
    set(CURLOPT_PATH_AS_IS, 1L);
    // A name and password in the URL are not sent.
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
    // A name and a colon alone take away a header that the library would send by itself.
    if (!_request.headers.contains("Expect"))
        addHeaderLine("Expect:");
    if (!_request.headers.contains("Content-Type"))
        addHeaderLine("Content-Type:");
    for (const auto& [name, value] : _request.headers) {
        if (equalNames(name, "Content-Length") || equalNames(name, "Transfer-Encoding"))
            continue;
        const std::string_view text = trimmed(value, blanks);
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

/// The library divides the time that it has for connecting among the addresses of a host. Counted from the
/// exchange's start.
void HTTPExchange::letConnectFor(std::chrono::milliseconds time) {
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - _started);
    set(CURLOPT_CONNECTTIMEOUT_MS,
        static_cast<long>(std::clamp<std::int64_t>((elapsed + time).count(), 1, INT_MAX)));
}

bool HTTPExchange::startSecuring(void* sslContext) {
    _phase = Phase::securing;
    letConnectFor(std::chrono::hours(24));
    auto* const context = static_cast<SSL_CTX*>(sslContext);
    SSL_CTX_set_app_data(context, this);
    SSL_CTX_set_client_cert_cb(context, &Callbacks::clientCertificate);
    if (const Outcome trusted = trustCertificateAuthorities(context, _host); !trusted) {
        _callbackError = trusted.error();
        return false;
    }
    return ask(URLProtectionSpace::Method::serverTrust);
}

/// Asks the listener; false when the exchange is to end.
bool HTTPExchange::ask(URLProtectionSpace::Method method, bool isProxy) {
    const URL& url = *_request.url;
    URLProtectionSpace space{.host = url.host(),
                             .port = url.port().value_or(url.scheme() == "https" ? 443 : 80),
                             .authenticationMethod = method,
                             .isProxy = isProxy,
                             .serverTrust = std::nullopt};
    if (method == URLProtectionSpace::Method::serverTrust)
        space.serverTrust = ServerTrust{url.host()};
    if (!_listener.mayGoOn(space))
        _isAbandoned = true;
    return !_isAbandoned;
}

std::size_t HTTPExchange::fillFromBody(char* buffer, std::size_t capacity) {
    if (!_request.body)
        return 0;
    const std::vector<Data>& pieces = _request.body->pieces();
    std::size_t filled = 0;
    while (filled < capacity && _piece < pieces.size()) {
        const std::string_view rest = pieces[_piece].bytes().substr(_pieceOffset);
        const std::size_t count = std::min(rest.size(), capacity - filled);
        std::memcpy(buffer + filled, rest.data(), count);
        filled += count;
        _pieceOffset += count;
        if (count == rest.size()) {
            ++_piece;
            _pieceOffset = 0;
        }
    }
    if (_piece == pieces.size() && _phase == Phase::sending)
        _phase = Phase::waiting;
    return filled;
}

void HTTPExchange::seekBody(std::uint64_t offset) {
    _piece = 0;
    const std::vector<Data>& pieces = _request.body->pieces();
    for (; _piece < pieces.size() && offset >= pieces[_piece].size(); ++_piece)
        offset -= pieces[_piece].size();
    _pieceOffset = static_cast<std::size_t>(offset);
}

bool HTTPExchange::takeHeaderLine(std::string_view line) {
    _headBytes += line.size();
    if (_headBytes > headLimit) {
        failInCallback("the head of its answer is longer than 256 KiB", URLErrorCode::badServerResponse);
        return false;
    }
    line = line.substr(0, line.find_last_not_of("\r\n") + 1);
    if (_headIsDone)
        return true;
    if (line.empty())
        return finishHead();
    if (line.starts_with("HTTP/")) {
        _head = HTTPResponseHead();
        _lastHeader = _head.allHeaderFields.end();
        const std::size_t code = std::min(line.find(' '), line.size() - 1) + 1;
        std::from_chars(line.data() + code, line.data() + line.size(), _head.statusCode);
    } else {
        takeHeader(line);
    }
    return true;
}

void HTTPExchange::takeHeader(std::string_view line) {
    HTTPHeaders& headers = _head.allHeaderFields;
    // A folded line goes on with the value before it (RFC 9112 section 5.2).
    if (blanks.find(line.front()) != std::string_view::npos && _lastHeader != headers.end()) {
        _lastHeader->second.append(1, ' ').append(headerText(trimmed(line, blanks)));
        return;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos)
        return;
    const std::string value = headerText(trimmed(line.substr(colon + 1), blanks));
    const auto [header, isNew] = headers.emplace(headerText(trimmed(line.substr(0, colon), blanks)), value);
    if (!isNew)
        header->second.append(", ").append(value);
    _lastHeader = header;
}

bool HTTPExchange::finishHead() {
    // Before the request is sent only a proxy speaks, about the tunnel through it; 1xx announce a later head.
    if (_phase < Phase::sending || _head.statusCode < 200)
        return true;
    _headIsDone = true;
    _phase = Phase::receiving;
    if (!answerChallenge())
        return false;
    const auto coding = _head.allHeaderFields.find("Content-Encoding");
    if (coding != _head.allHeaderFields.end() && !equalNames(coding->second, "identity")) {
        _hasKnownCoding = equalNames(coding->second, "gzip") || equalNames(coding->second, "x-gzip");
        _gzip.emplace();
    }
    _listener.didReceiveHead(_head);
    return true;
}

bool HTTPExchange::takeBody(std::string_view bytes) {
    if (!_gzip)
        return takeDecoded(bytes);
    if (_hasKnownCoding && _gzip->read(bytes, std::bind_front(&HTTPExchange::takeDecoded, this)))
        return true;
    if (!_callbackError)
        _callbackError =
            undecodable(_hasKnownCoding ? "its bytes are damaged" : "it is in another coding than gzip");
    return false;
}

bool HTTPExchange::takeDecoded(std::string_view bytes) {
    _decodedBodyBytes += bytes.size();
    if (_decodedBodyBytes > _request.answerLimit) {
        failInCallback(format("its answer is longer than %@ bytes; ask whoever runs the server",
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

bool HTTPExchange::answerChallenge() {
    const bool isProxy = _head.statusCode == 407;
    if (!isProxy && _head.statusCode != 401)
        return true;
    const auto header = _head.allHeaderFields.find(isProxy ? "Proxy-Authenticate" : "WWW-Authenticate");
    if (header == _head.allHeaderFields.end())
        return true;
    const auto method = challengeMethod(header->second);
    return !method || ask(*method, isProxy);
}

bool HTTPExchange::hasStalled(Clock::time_point now) {
    const Clock::duration pause = now - _lastCheck;
    if (pause < checkInterval)
        return false;
    _lastCheck = now;
    // The asker was held up, and the library with it.
    if (pause > 4 * checkInterval)
        _lastProgress += pause;
    std::uint64_t moved = 0;
    for (const curl_socket_t socket : _sockets)
        moved += bytesMovedThroughSocket(socket);
    if (moved != _lastMoved || _phase != _lastPhase)
        _lastProgress = now;
    _lastMoved = moved;
    _lastPhase = _phase;
    if (_phase == Phase::resolving)
        letConnectFor(_request.timeoutInterval);
    return now - _lastProgress >= _request.timeoutInterval;
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

std::optional<Error> HTTPExchange::outcome(CURLcode result) {
    if (_callbackError)
        return _callbackError;
    if (result == CURLE_OK && isLongerThanAnnounced())
        return urlError(
            URLErrorCode::badServerResponse,
            format("The answer of %@ is longer than its head announces; the rest is left out. Ask "
                   "whoever runs the server.",
                   _host));
    if (result == CURLE_OK && _gzip && !_gzip->isComplete())
        return undecodable("it ends before its end");
    if (result == CURLE_OK && _headIsDone)
        return std::nullopt;
    // The proxy did not open a tunnel because it wants authentication: that is an answer, not a failure.
    if (!_headIsDone && _phase < Phase::sending && _head.statusCode == 407) {
        _phase = Phase::waiting;
        finishHead();
        return std::nullopt;
    }
    if (result == CURLE_OPERATION_TIMEDOUT)
        return stallError();
    HTTPFailure failure{.result = result,
                        .reason = _reason,
                        .isHeadMissing = !_headIsDone && _phase >= Phase::sending,
                        .isSecuring = _phase == Phase::securing,
                        .clientCertificateIsWanted = _clientCertificateIsWanted && !_headIsDone};
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
