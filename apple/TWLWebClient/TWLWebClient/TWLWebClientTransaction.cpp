#include "TWLWebClient/TWLWebClientTransaction.h"

#include "TWLWebClient/TWLWebClient.h"
#include "platform/Assert.h"
#include "platform/PropertyList.h"
#include "platform/RunLoop.h"

using platform::Data;
using platform::Error;
using platform::URLConnection;
using platform::Value;

namespace {

constexpr const char* sourceFile = "apple/TWLWebClient/TWLWebClient/TWLWebClientTransaction";

constexpr std::string_view plistContentType = "application/x-plist";
constexpr std::string_view JSONContentType = "application/json";

} // namespace

std::shared_ptr<TWLWebClientTransaction>
TWLWebClientTransaction::transactionWithRequest(std::shared_ptr<TWLWebRequest> request) {
    return std::make_shared<TWLWebClientTransaction>(std::move(request));
}

TWLWebClientTransaction::TWLWebClientTransaction(std::shared_ptr<TWLWebRequest> request)
    : _request(std::move(request)),
      _queue(platform::DispatchQueue::serial(TARNWHISTLE_REVERSE_DNS ".web-transaction")) {}

void TWLWebClientTransaction::startWithCompletionHandler(TWLWebCompletion handler) {
    _queue.async([self = shared_from_this(), handler = std::move(handler)] {
        self->setCompletionHandler(handler);
        self->startConnection();
    });
}

void TWLWebClientTransaction::syncStartWithCompletionHandler(TWLWebCompletion handler) {
    setCompletionHandler(std::move(handler));
    TWL_ASSERT(!_connection, "!_connection", "-[TWLWebClientTransaction syncStartWithCompletionHandler:]",
               sourceFile);
    syncStartConnection();
}

void TWLWebClientTransaction::startConnection() {
    constexpr const char* function = "-[TWLWebClientTransaction startConnection]";
    const std::shared_ptr<platform::URLRequest> request = _request ? _request->URLRequest() : nullptr;
    TWL_ASSERT(_connection == nullptr, "_connection == nil", function, sourceFile);
    TWL_ASSERT(request, "request", function, sourceFile);
    _response->setRequestURL(request->url);
    _connection = std::make_unique<URLConnection>(*request, shared_from_this());
    _connection->scheduleInRunLoop(platform::RunLoop::mainRunLoop());
    _connection->start();
}

void TWLWebClientTransaction::syncStartConnection() {
    constexpr const char* function = "-[TWLWebClientTransaction syncStartConnection]";
    const std::shared_ptr<platform::URLRequest> request = _request ? _request->URLRequest() : nullptr;
    TWL_ASSERT(_connection == nullptr, "_connection == nil", function, sourceFile);
    TWL_ASSERT(request, "request", function, sourceFile);
    _response->setRequestURL(request->url);
    URLConnection::SynchronousResult result = URLConnection::sendSynchronousRequest(*request);
    if (result.error)
        _response->setError(std::move(result.error));
    if (result.data)
        _response->appendData(*result.data);
    if (result.response && result.response->http) {
        _response->setStatusCode(result.response->http->statusCode);
        _response->setResponseHeaders(std::move(result.response->http->allHeaderFields));
    }
    complete();
}

void TWLWebClientTransaction::connection(URLConnection&, const platform::URLResponse& didReceiveResponse) {
    if (!didReceiveResponse.http)
        return;
    _queue.async([self = shared_from_this(), head = *didReceiveResponse.http] {
        self->_response->setStatusCode(head.statusCode);
        self->_response->setResponseHeaders(head.allHeaderFields);
        const auto header = head.allHeaderFields.find("Content-Type");
        const std::string type = header == head.allHeaderFields.end() ? "" : header->second;
        self->_contentType.reset();
        for (const std::string_view known : {plistContentType, JSONContentType})
            if (!self->_contentType && type.find(known) != std::string::npos)
                self->_contentType = known;
    });
}

void TWLWebClientTransaction::connection(URLConnection&, const Data& didReceiveData) {
    _queue.async(
        [self = shared_from_this(), didReceiveData] { self->_response->appendData(didReceiveData); });
}

void TWLWebClientTransaction::connection(URLConnection&, const std::optional<Error>& didFailWithError) {
    TWL_ASSERT(didFailWithError, "error", "-[TWLWebClientTransaction connection:didFailWithError:]",
               sourceFile);
    _queue.async([self = shared_from_this(), didFailWithError] {
        self->_response->setError(didFailWithError);
        self->complete();
    });
}

void TWLWebClientTransaction::connectionDidFinishLoading(URLConnection&) {
    _queue.async([self = shared_from_this()] { self->complete(); });
}

bool TWLWebClientTransaction::connection(
    URLConnection& connection, const platform::URLProtectionSpace& canAuthenticateAgainstProtectionSpace) {
    const platform::URLProtectionSpace& space = canAuthenticateAgainstProtectionSpace;
    bool answer = false;
    if (space.serverTrust) {
        _queue.sync([&] {
            const TWLWebRequest::ProtectionSpaceHandler& handler = _request->protectionSpaceHandler();
            if (handler)
                answer = handler(space);
        });
        return answer;
    }
    connection.cancel();
    const auto code = static_cast<std::int64_t>(TWLWebClientError::authenticationRequired);
    this->connection(connection, Error{std::string(TWLWebClientErrorDomain), code, {}});
    return answer;
}

Value TWLWebClientTransaction::objectFromReceivedData() {
    const Data& data = _response->responseData();
    if (data.empty())
        return nullptr;
    if (_contentType == JSONContentType)
        return TWLWebClient::decodeJSON(data.bytes());
    if (_contentType == plistContentType) {
        auto list = platform::parsePropertyList(data.bytes());
        if (list)
            return *std::move(list);
        if (!_response->error())
            _response->setError(list.error());
        return nullptr;
    }
    return data;
}

void TWLWebClientTransaction::complete() {
    TWL_ASSERT(_completionHandler, "_completionHandler", "-[TWLWebClientTransaction complete]", sourceFile);
    _response->setBody(objectFromReceivedData());
    _completionHandler(_response);
    setCompletionHandler(nullptr);
}
