#include "platform/URLConnection.h"

#include "platform/HTTPExchange.h"
#include "platform/HTTPFailure.h"

#include <atomic>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace platform {
namespace {

struct FreeMulti {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};

/// Keeps what a synchronous exchange receives.
class Collector : public HTTPExchangeListener {
public:
    explicit Collector(URLConnection::SynchronousResult& result, std::optional<URL> url)
        : _result(result), _url(std::move(url)) {}

    void didReceiveHead(HTTPResponseHead head) override {
        _result.response = URLResponse{_url, std::move(head)};
    }
    void didReceiveBody(std::string_view bytes) override { _bytes.append(bytes); }
    bool mayGoOn(const URLProtectionSpace&) override { return true; }

    void finish() {
        if (_result.response)
            _result.data = Data(std::move(_bytes));
    }

private:
    URLConnection::SynchronousResult& _result;
    std::optional<URL> _url;
    std::string _bytes;
};

/// Drives the only exchange of `multi` to its end; how that was.
std::optional<Error> drive(CURLM* multi, HTTPExchange& exchange) {
    int running = 1;
    CURLMcode code = CURLM_OK;
    while (code == CURLM_OK) {
        code = curl_multi_perform(multi, &running);
        if (code != CURLM_OK || running == 0)
            break;
        if (exchange.hasStalled(HTTPExchange::Clock::now()))
            return exchange.stallError();
        code = curl_multi_poll(multi, nullptr, 0, static_cast<int>(HTTPExchange::checkInterval.count()),
                               nullptr);
    }
    int left = 0;
    const CURLMsg* const message = curl_multi_info_read(multi, &left);
    return exchange.outcome(message ? message->data.result : CURLE_FAILED_INIT);
}

/// The asynchronous exchanges, driven by the main run loop and only touched inside it.
class Transport {
public:
    using Ended = std::function<void(const std::optional<Error>&)>;

    static Transport& shared() {
        // Never destroyed: exchanges may be under way until the process has ended.
        static Transport* const transport = new Transport;
        return *transport;
    }

    /// False when the library has no room for it. `ended` is called once, unless the exchange is removed.
    bool add(HTTPExchange& exchange, Ended ended) {
        if (!_multi || curl_multi_add_handle(_multi.get(), exchange.handle()) != CURLM_OK)
            return false;
        if (_exchanges.empty())
            scheduleCheck();
        _exchanges.emplace(exchange.handle(), Entry{&exchange, std::move(ended)});
        return true;
    }

    void remove(HTTPExchange& exchange) {
        if (_exchanges.erase(exchange.handle()) == 1)
            curl_multi_remove_handle(_multi.get(), exchange.handle());
    }

private:
    struct Entry {
        HTTPExchange* exchange;
        Ended ended;
    };

    Transport() : _multi(curl_multi_init()) {
        CURLMcode code = _multi ? CURLM_OK : CURLM_OUT_OF_MEMORY;
        const auto set = [&](CURLMoption option, auto value) {
            if (code == CURLM_OK)
                code = curl_multi_setopt(_multi.get(), option, value);
        };
        // One connection for each exchange, whatever the server offers.
        set(CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_NOTHING));
        set(CURLMOPT_SOCKETFUNCTION, &Transport::socketChanged);
        set(CURLMOPT_SOCKETDATA, this);
        set(CURLMOPT_TIMERFUNCTION, &Transport::timerChanged);
        set(CURLMOPT_TIMERDATA, this);
        if (code != CURLM_OK)
            _multi.reset();
    }

    static int socketChanged(CURL*, curl_socket_t socket, int what, void* transport, void*) {
        const RunLoop::Interest interest{.read = (what & CURL_POLL_IN) != 0 && what != CURL_POLL_REMOVE,
                                         .write = (what & CURL_POLL_OUT) != 0 && what != CURL_POLL_REMOVE};
        auto* const self = static_cast<Transport*>(transport);
        RunLoop::mainRunLoop().setDescriptor(socket, interest, [=](RunLoop::Interest ready) {
            self->act(socket, (ready.read ? CURL_CSELECT_IN : 0) | (ready.write ? CURL_CSELECT_OUT : 0));
        });
        return 0;
    }

    static int timerChanged(CURLM*, long milliseconds, void* transport) {
        auto* const self = static_cast<Transport*>(transport);
        if (milliseconds < 0)
            RunLoop::mainRunLoop().removeTimer(self);
        else
            RunLoop::mainRunLoop().setTimer(self, std::chrono::milliseconds(milliseconds),
                                            [=] { self->act(CURL_SOCKET_TIMEOUT, 0); });
        return 0;
    }

    void act(curl_socket_t socket, int ready) {
        int running = 0;
        curl_multi_socket_action(_multi.get(), socket, ready, &running);
        int left = 0;
        while (const CURLMsg* const message = curl_multi_info_read(_multi.get(), &left)) {
            const auto entry = _exchanges.find(message->easy_handle);
            if (message->msg != CURLMSG_DONE || entry == _exchanges.end())
                continue;
            const CURLcode result = message->data.result;
            const Ended ended = entry->second.ended;
            ended(entry->second.exchange->outcome(result));
        }
    }

    void scheduleCheck() {
        RunLoop::mainRunLoop().setTimer(&_exchanges, HTTPExchange::checkInterval, [this] { check(); });
    }

    void check() {
        const auto now = HTTPExchange::Clock::now();
        std::vector<std::pair<Ended, Error>> stalled;
        for (const auto& [handle, entry] : _exchanges)
            if (entry.exchange->hasStalled(now))
                stalled.emplace_back(entry.ended, entry.exchange->stallError());
        for (const auto& [ended, error] : stalled)
            ended(error);
        if (!_exchanges.empty())
            scheduleCheck();
    }

    std::unique_ptr<CURLM, FreeMulti> _multi;
    std::map<CURL*, Entry> _exchanges;
};

} // namespace

/// One asynchronous connection while it is under way. Apart from `start` and `cancel` everything runs in the
/// main run loop.
class URLConnection::Loader : public HTTPExchangeListener, public std::enable_shared_from_this<Loader> {
public:
    Loader(URLConnection& connection, URLRequest request, std::shared_ptr<URLConnectionDelegate> delegate)
        : _connection(connection), _request(std::move(request)), _delegate(std::move(delegate)) {}

    void setRunLoop(RunLoop& runLoop) { _runLoop = &runLoop; }

    void start() {
        _runLoop->perform([self = shared_from_this()] { self->begin(); });
    }
    void cancel() {
        if (!_isSilent.exchange(true))
            _runLoop->perform([self = shared_from_this()] { self->leave(); });
    }

    void didReceiveHead(HTTPResponseHead head) override {
        if (!_isSilent)
            _delegate->connection(_connection, URLResponse{_request.url, std::move(head)});
    }
    void didReceiveBody(std::string_view bytes) override {
        if (!_isSilent)
            _delegate->connection(_connection, Data(std::string(bytes)));
    }
    bool mayGoOn(const URLProtectionSpace& space) override {
        if (!_isSilent)
            _delegate->connection(_connection, space);
        return !_isSilent;
    }

private:
    void begin() {
        if (_isSilent)
            return;
        auto exchange = HTTPExchange::make(_request, *this);
        if (!exchange)
            return finish(exchange.error());
        _exchange = *std::move(exchange);
        const auto ended = [self = shared_from_this()](const std::optional<Error>& error) {
            self->finish(error);
        };
        if (!Transport::shared().add(*_exchange, ended))
            finish(_exchange->outcome(CURLE_FAILED_INIT));
    }

    void finish(const std::optional<Error>& error) {
        const std::shared_ptr<URLConnectionDelegate> delegate = _delegate;
        leave();
        if (_isSilent.exchange(true))
            return;
        if (error)
            delegate->connection(_connection, error);
        else
            delegate->connectionDidFinishLoading(_connection);
    }

    void leave() {
        if (_exchange)
            Transport::shared().remove(*_exchange);
        _exchange.reset();
        _delegate.reset();
    }

    URLConnection& _connection;
    const URLRequest _request;
    std::shared_ptr<URLConnectionDelegate> _delegate;
    RunLoop* _runLoop = &RunLoop::mainRunLoop();
    std::unique_ptr<HTTPExchange> _exchange;
    /// Cancelled or ended: no operation of the delegate may be called any more.
    std::atomic<bool> _isSilent = false;
};

URLConnection::URLConnection(URLRequest request, std::shared_ptr<URLConnectionDelegate> delegate)
    : _loader(std::make_shared<Loader>(*this, std::move(request), std::move(delegate))) {}

URLConnection::~URLConnection() {
    cancel();
}

void URLConnection::scheduleInRunLoop(RunLoop& runLoop) {
    _loader->setRunLoop(runLoop);
}

void URLConnection::start() {
    _loader->start();
}

void URLConnection::cancel() {
    _loader->cancel();
}

URLConnection::SynchronousResult URLConnection::sendSynchronousRequest(const URLRequest& request) {
    SynchronousResult result;
    Collector collector(result, request.url);
    const auto exchange = HTTPExchange::make(request, collector);
    if (!exchange) {
        result.error = exchange.error();
        return result;
    }
    const std::unique_ptr<CURLM, FreeMulti> multi(curl_multi_init());
    if (!multi || curl_multi_add_handle(multi.get(), (*exchange)->handle()) != CURLM_OK) {
        result.error = (*exchange)->outcome(CURLE_FAILED_INIT);
        return result;
    }
    result.error = drive(multi.get(), **exchange);
    curl_multi_remove_handle(multi.get(), (*exchange)->handle());
    collector.finish();
    return result;
}

void URLRequest::addValueForHTTPHeaderField(std::string_view value, std::string_view field) {
    const auto [header, isNew] = headers.emplace(field, value);
    if (!isNew)
        header->second.append(1, ',').append(value);
}

} // namespace platform
