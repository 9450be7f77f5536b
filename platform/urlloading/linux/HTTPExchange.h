#pragma once

#include "platform/urlloading/HTTPTransfer.h"
#include "platform/urlloading/linux/HTTPAnswerReader.h"
#include "platform/urlloading/linux/HTTPFailure.h"
#include "platform/urlloading/linux/HTTPHandle.h"
#include "platform/urlloading/linux/HTTPProgress.h"

#include <exception>
#include <memory>
#include <optional>
#include <string>

namespace platform {

/// One request on one easy handle of libcurl: passes the answer to the listener and turns failures into
/// errors. The owner adds `handle` to a multi handle and drives it.
class HTTPExchange {
public:
    using Clock = HTTPProgress::Clock;

    /// Fails when the request cannot be sent at all. `request` and `listener` must outlive the exchange.
    static Result<std::unique_ptr<HTTPExchange>> make(const URLRequest& request,
                                                      HTTPExchangeListener& listener);
    HTTPExchange(const HTTPExchange&) = delete;
    HTTPExchange& operator=(const HTTPExchange&) = delete;

    CURL* handle() const { return _handle.get(); }

    /// Whether the exchange has made no progress for the request's timeout interval. The owner must call this
    /// at least every HTTPProgress::checkInterval.
    bool checkForStall(Clock::time_point now);

    /// Reports the end of the exchange to the listener. `result` is libcurl's, or CURLE_OPERATION_TIMEDOUT
    /// after a stall. Call it once.
    void end(CURLcode result);

private:
    using Phase = HTTPProgress::Phase;
    struct Callbacks;

    HTTPExchange(const URLRequest& request, HTTPExchangeListener& listener);

    void setCallbacks();
    void enter(Phase phase);
    bool startSecuring(void* sslContext);
    bool askListener(URLProtectionSpace::Method method, bool isProxy);
    bool isSecuringProxy() const;
    bool beginAnswer();
    void readUnreadAnswer();
    bool isTunnelRefused() const;
    std::optional<Error> errorFor(CURLcode result) const;
    Error exceptionError() const;
    HTTPFailure failure(CURLcode result, std::string reason) const;

    const URLRequest& _request;
    HTTPExchangeListener& _listener;
    const std::string _host;
    std::optional<HTTPBodyReader> _body;
    HTTPAnswerReader _answer;
    HTTPProgress _progress;
    std::optional<HTTPProxy> _proxy;
    int _handshakes = 0;
    bool _isClientCertificateRequested = false;
    /// Whether the listener ended the exchange.
    bool _isAbandoned = false;
    /// The first exception in a callback.
    std::exception_ptr _exception;
    /// Why there are no trusted certificates.
    std::optional<Error> _trustError;
    /// Whether the answer is complete although libcurl could not send the whole request.
    bool _isEarlyAnswer = false;
    // Last: the handle points to the members above and must be destroyed before them.
    HTTPHandle _handle;
};

} // namespace platform
