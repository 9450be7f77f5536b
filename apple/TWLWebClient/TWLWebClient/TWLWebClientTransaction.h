#pragma once

#include "TWLWebClient/TWLWebRequest.h"
#include "TWLWebClient/TWLWebResponse.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/urlloading/URLConnection.h"

#include <memory>
#include <optional>
#include <string_view>

/// Sends one request and fills one response, asynchronously on the main run loop or synchronously on the
/// calling thread. A transaction is used once; its callback is called exactly once.
class TWLWebClientTransaction : public platform::URLConnectionDelegate,
                                public std::enable_shared_from_this<TWLWebClientTransaction> {
public:
    static std::shared_ptr<TWLWebClientTransaction>
    transactionWithRequest(std::shared_ptr<TWLWebRequest> request,
                           const std::string& labelPrefix = "TWLWebClient");
    explicit TWLWebClientTransaction(std::shared_ptr<TWLWebRequest> request,
                                     const std::string& labelPrefix = "TWLWebClient");

    /// Returns at once. The callback runs on the transaction's queue. Needs a running main run loop.
    void startWithCompletionHandler(TWLWebCompletion handler);

    /// Returns after the callback has run on the calling thread. The body is the received bytes, not decoded.
    void syncStartWithCompletionHandler(TWLWebCompletion handler);

    const TWLWebCompletion& completionHandler() const { return _completionHandler; }
    void setCompletionHandler(TWLWebCompletion handler) { _completionHandler = std::move(handler); }

    // The steps of an exchange. The delegate operations run on the main thread. The others run on the
    // transaction's queue or, if the exchange is synchronous, on the calling thread.

    void startConnection();
    void syncStartConnection();
    /// The received bytes, decoded by the answer's content type; null if there are none or they are invalid.
    platform::Value objectFromReceivedData();
    void complete();

    void didReceiveResponse(platform::URLConnection& connection,
                            const platform::URLResponse& response) override;
    void didReceiveData(platform::URLConnection& connection, const platform::Data& data) override;
    void didFailWithError(platform::URLConnection& connection,
                          const std::optional<platform::Error>& error) override;
    void connectionDidFinishLoading(platform::URLConnection& connection) override;
    bool canAuthenticateAgainstProtectionSpace(platform::URLConnection& connection,
                                               const platform::URLProtectionSpace& space) override;

private:
    /// The platform's request. `function` is the caller's name for assertions.
    std::shared_ptr<platform::URLRequest> platformRequest(const char* function);

    const std::shared_ptr<TWLWebRequest> _request;
    const std::shared_ptr<TWLWebResponse> _response = std::make_shared<TWLWebResponse>();
    std::optional<std::string_view> _contentType;
    std::unique_ptr<platform::URLConnection> _connection;
    const platform::DispatchQueue _queue;
    TWLWebCompletion _completionHandler;
};
