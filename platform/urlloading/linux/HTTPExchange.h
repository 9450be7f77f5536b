#pragma once

#include "platform/urlloading/HTTPTransfer.h"
#include "platform/urlloading/linux/GzipReader.h"
#include "platform/urlloading/linux/HTTPHeadParser.h"
#include "platform/urlloading/linux/StallDetector.h"

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// One request on one easy handle of libcurl: sets up the request, passes the answer to the listener, and
/// turns failures into errors. The owner adds `handle` to a multi handle and drives it.
class HTTPExchange {
public:
    using Clock = std::chrono::steady_clock;

    /// Fails when the request cannot be sent at all. `request` and `listener` must outlive the exchange.
    static Result<std::unique_ptr<HTTPExchange>> make(const URLRequest& request,
                                                      HTTPExchangeListener& listener);
    HTTPExchange(const HTTPExchange&) = delete;
    HTTPExchange& operator=(const HTTPExchange&) = delete;

    CURL* handle() const { return _easy.get(); }

    /// Whether the exchange has made no progress for the request's timeout interval. The owner must call this
    /// at least every StallDetector::checkInterval.
    bool checkForStall(Clock::time_point now);

    /// Reports the end of the exchange to the listener. `result` is libcurl's, or CURLE_OPERATION_TIMEDOUT
    /// after a stall. Call it once.
    void end(CURLcode result);

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

    void setConnectTimeout(std::chrono::milliseconds time);
    bool startSecuring(void* sslContext);
    bool askListener(URLProtectionSpace::Method method, bool isProxy = false);
    std::size_t readBody(char* buffer, std::size_t capacity);
    bool receiveHeadLine(std::string_view line);
    bool finishHead();
    bool receiveBody(std::string_view bytes);
    bool receiveDecoded(std::string_view bytes);
    bool isTunnelRefused() const;
    std::optional<Error> errorFor(CURLcode result) const;
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
    bool _isClientCertificateRequested = false;

    const Clock::time_point _started = Clock::now();
    StallDetector _stall{_request.timeoutInterval, _started};
    Phase _phase = Phase::resolving;

    std::optional<HTTPBodyReader> _requestBody;

    HTTPHeadParser _heads;
    std::int64_t _bodyBytes = 0; // before decoding
    std::uint64_t _decodedBodyBytes = 0;
    bool _headIsDone = false;
    /// Set when the answer has a content coding. `_isGzip` is false for a coding other than gzip.
    std::optional<GzipReader> _gzip;
    bool _isGzip = false;

    // Last: the handle points to the members above and must be destroyed before them.
    std::unique_ptr<CURL, void (*)(CURL*)> _easy;
};

} // namespace platform
