#include "platform/urlloading/URLConnection.h"

#include "platform/dispatch/RunLoop.h"
#include "platform/urlloading/HTTPTransfer.h"

#include <atomic>
#include <utility>

namespace platform {

/// One running asynchronous connection. All operations but `start` and `cancel` run in the main run loop.
class URLConnection::Loader : public HTTPExchangeListener, public std::enable_shared_from_this<Loader> {
public:
    Loader(URLConnection& connection, URLRequest request, std::shared_ptr<URLConnectionDelegate> delegate)
        : _connection(connection), _request(std::move(request)), _delegate(std::move(delegate)) {}

    void start() {
        RunLoop::mainRunLoop().perform([self = shared_from_this()] { self->begin(); });
    }
    void cancel() {
        if (!_isSilent.exchange(true))
            RunLoop::mainRunLoop().perform([self = shared_from_this()] { self->leave(); });
    }

    void didReceiveHead(HTTPResponseHead head) override {
        if (!_isSilent)
            _delegate->didReceiveResponse(_connection, URLResponse{_request.url, std::move(head)});
    }
    void didReceiveBody(std::string_view bytes) override {
        if (!_isSilent)
            _delegate->didReceiveData(_connection, Data(std::string(bytes)));
    }
    bool mayContinue(const URLProtectionSpace& space) override {
        if (!_isSilent)
            _delegate->canAuthenticateAgainstProtectionSpace(_connection, space);
        return !_isSilent;
    }
    void didEnd(const std::optional<Error>& error) override {
        // The delegate may destroy the connection, which owns this loader.
        const std::shared_ptr<Loader> self = shared_from_this();
        const std::shared_ptr<URLConnectionDelegate> delegate = _delegate;
        leave();
        if (_isSilent.exchange(true))
            return;
        if (error)
            delegate->didFailWithError(_connection, error);
        else
            delegate->connectionDidFinishLoading(_connection);
    }

private:
    void begin() {
        if (_isSilent)
            return;
        auto transfer = startTransfer(_request, *this);
        if (!_isSilent)
            _transfer = std::move(transfer);
    }

    void leave() {
        _transfer.reset();
        _delegate.reset();
    }

    URLConnection& _connection;
    const URLRequest _request;
    std::shared_ptr<URLConnectionDelegate> _delegate;
    std::unique_ptr<HTTPTransfer> _transfer;
    /// True after cancellation or the end: the delegate must not be called any more.
    std::atomic<bool> _isSilent = false;
};

URLConnection::URLConnection(URLRequest request, std::shared_ptr<URLConnectionDelegate> delegate)
    : _loader(std::make_shared<Loader>(*this, std::move(request), std::move(delegate))) {}

URLConnection::~URLConnection() {
    cancel();
}

void URLConnection::start() {
    _loader->start();
}

void URLConnection::cancel() {
    _loader->cancel();
}

} // namespace platform
