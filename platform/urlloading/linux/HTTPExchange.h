#pragma once

#include "platform/urlloading/URLConnection.h"
#include "platform/urlloading/linux/GzipReader.h"

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The transport library behind URLConnection.h. Only the transport includes this.
namespace platform {

/// Hears of an exchange while it runs, inside the library's callbacks, and of its end.
class HTTPExchangeListener {
public:
    virtual ~HTTPExchangeListener() = default;
    virtual void didReceiveHead(HTTPResponseHead head) = 0;
    virtual void didReceiveBody(std::string_view bytes) = 0;
    /// An authentication is asked for. False ends the exchange.
    virtual bool mayGoOn(const URLProtectionSpace& space) = 0;
    /// Once, outside the library's callbacks. May destroy the exchange.
    virtual void didEnd(const std::optional<Error>& error) = 0;
};

/// One request on one easy handle: how it is told to the library, what the library tells back, whether it
/// still makes progress, and how its failure is called. Whoever drives the handle puts it into a multi
/// handle.
class HTTPExchange {
public:
    using Clock = std::chrono::steady_clock;

    /// An error when the request cannot be sent at all. `request` and `listener` must outlive the exchange.
    static Result<std::unique_ptr<HTTPExchange>> make(const URLRequest& request,
                                                      HTTPExchangeListener& listener);
    HTTPExchange(const HTTPExchange&) = delete;
    HTTPExchange& operator=(const HTTPExchange&) = delete;

    CURL* handle() const { return _easy.get(); }

    /// Whether there has been no progress for the request's timeout interval. To be asked at least every
    /// `checkInterval` while the exchange runs: longer pauses of the asker do not count.
    static constexpr std::chrono::milliseconds checkInterval{250};
    bool hasStalled(Clock::time_point now);

    /// Tells the listener how the exchange ended when the library gave `result`, or CURLE_OPERATION_TIMEDOUT
    /// after a stall. Once.
    void end(CURLcode result) { _listener.didEnd(outcome(result)); }

private:
    enum class Phase { resolving, connecting, securing, sending, waiting, receiving };
    struct Callbacks;

    HTTPExchange(const URLRequest& request, HTTPExchangeListener& listener);

    template <class T>
    void set(CURLoption option, T value);
    void setUpTransport();
    void setUpRequest();
    void setUpHeaders();
    void setUpCallbacks();
    void addHeaderLine(const std::string& line);

    void letConnectFor(std::chrono::milliseconds time);
    bool startSecuring(void* sslContext);
    bool ask(URLProtectionSpace::Method method, bool isProxy = false);
    std::size_t fillFromBody(char* buffer, std::size_t capacity);
    void seekBody(std::uint64_t offset);
    bool takeHeaderLine(std::string_view line);
    void takeHeader(std::string_view line);
    bool finishHead();
    bool answerChallenge();
    bool takeBody(std::string_view bytes);
    bool takeDecoded(std::string_view bytes);
    std::optional<Error> outcome(CURLcode result);
    Error stallError() const;
    Error undecodable(std::string reason) const;
    bool isLongerThanAnnounced() const;
    void failInCallback(const std::string& reason, URLErrorCode code);

    const URLRequest& _request;
    HTTPExchangeListener& _listener;
    const std::string _host;

    CURLcode _setUpResult = CURLE_OK;
    char _reason[CURL_ERROR_SIZE] = "";
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> _headerList{nullptr, &curl_slist_free_all};
    std::vector<curl_socket_t> _sockets;
    std::optional<Error> _callbackError;
    bool _isAbandoned = false;
    bool _clientCertificateIsWanted = false;

    const Clock::time_point _started = Clock::now();
    Clock::time_point _lastProgress = _started;
    Clock::time_point _lastCheck = _started;
    Phase _phase = Phase::resolving;
    Phase _lastPhase = Phase::resolving;
    std::uint64_t _lastMoved = 0;

    std::size_t _piece = 0;
    std::size_t _pieceOffset = 0;

    HTTPResponseHead _head;
    HTTPHeaders::iterator _lastHeader = _head.allHeaderFields.end();
    std::size_t _headBytes = 0;
    std::int64_t _bodyBytes = 0; // as they came
    std::uint64_t _decodedBodyBytes = 0;
    bool _headIsDone = false;
    /// For an answer in a content coding.
    std::optional<GzipReader> _gzip;
    bool _hasKnownCoding = false;

    // Last, so that the handle goes before what it points to.
    std::unique_ptr<CURL, void (*)(CURL*)> _easy;
};

} // namespace platform
