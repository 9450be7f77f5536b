#include "platform/urlloading/HTTPTransfer.h"

#include "platform/dispatch/RunLoop.h"
#include "platform/urlloading/linux/HTTPExchange.h"
#include "platform/urlloading/linux/HTTPFailure.h"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace platform {
namespace {

/// Collects the answer of a synchronous exchange.
struct Collector : HTTPExchangeListener {
    explicit Collector(const URLRequest& request) : url(request.url) {}
    void didReceiveHead(HTTPResponseHead head) override { response = URLResponse{url, std::move(head)}; }
    void didReceiveBody(std::string_view bytes) override { body.append(bytes); }
    bool mayContinue(const URLProtectionSpace&) override { return true; }
    void didEnd(const std::optional<Error>& reason) override {
        hasEnded = true;
        error = reason;
    }

    const std::optional<URL>& url;
    std::optional<URLResponse> response;
    std::string body;
    std::optional<Error> error;
    bool hasEnded = false;
};

/// Runs exchanges on one thread, which drives them by calling `wait`.
class Transport : public RunLoop::Source {
public:
    /// Runs the asynchronous exchanges. Use it only inside the main run loop.
    static Transport& shared() {
        // Never destroyed, because exchanges may run until the process ends.
        static Transport* const transport = [] {
            auto* const made = new Transport;
            if (made->_multi)
                RunLoop::mainRunLoop().setSource(*made);
            return made;
        }();
        return *transport;
    }

    Transport() : _multi(curl_multi_init(), &curl_multi_cleanup) {
        if (_multi && curl_multi_wakeup(_multi.get()) != CURLM_OK)
            _multi.reset();
    }

    /// Drives the exchange to its end, unless it is removed before.
    void add(HTTPExchange& exchange) {
        if (!_multi || curl_multi_add_handle(_multi.get(), exchange.handle()) != CURLM_OK)
            return exchange.end(CURLE_FAILED_INIT);
        _exchanges.emplace(exchange.handle(), &exchange);
    }

    void remove(HTTPExchange& exchange) {
        if (_exchanges.erase(exchange.handle()) == 1)
            curl_multi_remove_handle(_multi.get(), exchange.handle());
    }

    void wait(std::chrono::milliseconds limit) override {
        limit = std::min(limit, _exchanges.empty() ? std::chrono::minutes(1) : HTTPProgress::checkInterval);
        CURLMcode code = curl_multi_poll(_multi.get(), nullptr, 0, static_cast<int>(limit.count()), nullptr);
        int count = 0;
        if (code == CURLM_OK)
            code = curl_multi_perform(_multi.get(), &count);
        std::vector<std::pair<CURL*, CURLcode>> results;
        while (const CURLMsg* const message = curl_multi_info_read(_multi.get(), &count))
            results.emplace_back(message->easy_handle, message->data.result);
        const auto now = HTTPExchange::Clock::now();
        for (const auto& [handle, exchange] : _exchanges)
            if (code != CURLM_OK)
                results.emplace_back(handle, CURLE_FAILED_INIT);
            else if (exchange->checkForStall(now))
                results.emplace_back(handle, CURLE_OPERATION_TIMEDOUT);
        for (const auto& [handle, result] : results)
            end(handle, result);
    }

    void wake() override { curl_multi_wakeup(_multi.get()); }

private:
    void end(CURL* handle, CURLcode result) {
        const auto found = _exchanges.find(handle);
        if (found == _exchanges.end())
            return;
        HTTPExchange& exchange = *found->second;
        remove(exchange);
        exchange.end(result);
    }

    std::unique_ptr<CURLM, CURLMcode (*)(CURLM*)> _multi;
    std::map<CURL*, HTTPExchange*> _exchanges;
};

/// An exchange that the main run loop's transport runs.
class ScheduledTransfer : public HTTPTransfer {
public:
    explicit ScheduledTransfer(std::unique_ptr<HTTPExchange> exchange) : _exchange(std::move(exchange)) {}
    ~ScheduledTransfer() override { Transport::shared().remove(*_exchange); }
    ScheduledTransfer(const ScheduledTransfer&) = delete;
    ScheduledTransfer& operator=(const ScheduledTransfer&) = delete;

private:
    const std::unique_ptr<HTTPExchange> _exchange;
};

} // namespace

std::unique_ptr<HTTPTransfer> startTransfer(const URLRequest& request, HTTPExchangeListener& listener) {
    auto exchange = HTTPExchange::make(request, listener);
    if (!exchange) {
        listener.didEnd(exchange.error());
        return nullptr;
    }
    HTTPExchange& started = **exchange;
    auto transfer = std::make_unique<ScheduledTransfer>(*std::move(exchange));
    Transport::shared().add(started);
    return transfer;
}

URLConnection::SynchronousResult URLConnection::sendSynchronousRequest(const URLRequest& request) {
    Collector collector(request);
    const auto exchange = HTTPExchange::make(request, collector);
    if (!exchange)
        return {.response = {}, .data = {}, .error = exchange.error()};
    Transport transport;
    transport.add(**exchange);
    while (!collector.hasEnded)
        transport.wait(HTTPProgress::checkInterval);
    SynchronousResult result;
    result.error = std::move(collector.error);
    if ((result.response = std::move(collector.response)))
        result.data = Data(std::move(collector.body));
    return result;
}

} // namespace platform
