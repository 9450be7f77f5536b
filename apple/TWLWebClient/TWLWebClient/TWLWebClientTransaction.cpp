#include "TWLWebClient/TWLWebClientTransaction.h"

#include "TWLWebClient/TWLWebClient.h"
#include "platform/foundation/Assert.h"
#include "platform/propertylist/PropertyList.h"

using platform::Data;
using platform::Error;
using platform::URLConnection;
using platform::Value;

namespace {

constexpr const char* sourceFile = "apple/TWLWebClient/TWLWebClient/TWLWebClientTransaction";

constexpr std::string_view plistContentType = "application/x-plist";
constexpr std::string_view JSONContentType = "application/json";

/// The content type to decode by, or null. A property list takes precedence over JSON.
std::optional<std::string_view> decodedContentType(const platform::HTTPHeaders& headers) {
    const auto header = headers.find("Content-Type");
    if (header != headers.end())
        for (const std::string_view type : {plistContentType, JSONContentType})
            if (header->second.find(type) != std::string::npos)
                return type;
    return std::nullopt;
}

} // namespace

std::shared_ptr<TWLWebClientTransaction>
TWLWebClientTransaction::transactionWithRequest(std::shared_ptr<TWLWebRequest> request,
                                                const std::string& labelPrefix) {
    return std::make_shared<TWLWebClientTransaction>(std::move(request), labelPrefix);
}

TWLWebClientTransaction::TWLWebClientTransaction(std::shared_ptr<TWLWebRequest> request,
                                                 const std::string& labelPrefix)
    : _request(std::move(request)),
      _queue(platform::DispatchQueue::serial(labelPrefix + ".web-transaction")) {}

void TWLWebClientTransaction::startWithCompletionHandler(TWLWebCompletion handler) {
    _queue.async([self = shared_from_this(), handler = std::move(handler)] {
        self->setCompletionHandler(handler);
        self->startConnection();
    });
}

void TWLWebClientTransaction::syncStartWithCompletionHandler(TWLWebCompletion handler) {
    setCompletionHandler(std::move(handler));
    PLATFORM_ASSERT(!_connection, "!_connection",
                    "-[TWLWebClientTransaction syncStartWithCompletionHandler:]", sourceFile);
    syncStartConnection();
}

std::shared_ptr<platform::URLRequest> TWLWebClientTransaction::platformRequest(const char* function) {
    auto request = _request ? _request->URLRequest() : nullptr;
    PLATFORM_ASSERT(_connection == nullptr, "_connection == nil", function, sourceFile);
    PLATFORM_ASSERT(request, "request", function, sourceFile);
    _response->setRequestURL(request->url);
    return request;
}

void TWLWebClientTransaction::startConnection() {
    const auto request = platformRequest("-[TWLWebClientTransaction startConnection]");
    _connection = std::make_unique<URLConnection>(*request, shared_from_this());
    _connection->start();
}

void TWLWebClientTransaction::syncStartConnection() {
    const auto request = platformRequest("-[TWLWebClientTransaction syncStartConnection]");
    URLConnection::SynchronousResult result = URLConnection::sendSynchronousRequest(*request);
    if (result.error)
        _response->setError(std::move(result.error));
    // `_contentType` stays empty, so that `complete` does not decode the body.
    if (result.data)
        _response->appendData(*result.data);
    if (result.response && result.response->http) {
        _response->setStatusCode(result.response->http->statusCode);
        _response->setResponseHeaders(std::move(result.response->http->allHeaderFields));
    }
    complete();
}

void TWLWebClientTransaction::didReceiveResponse(URLConnection&, const platform::URLResponse& response) {
    if (!response.http)
        return;
    _queue.async([self = shared_from_this(), head = *response.http] {
        self->_response->setStatusCode(head.statusCode);
        self->_response->setResponseHeaders(head.allHeaderFields);
        self->_contentType = decodedContentType(head.allHeaderFields);
    });
}

void TWLWebClientTransaction::didReceiveData(URLConnection&, const Data& data) {
    _queue.async([self = shared_from_this(), data] { self->_response->appendData(data); });
}

void TWLWebClientTransaction::didFailWithError(URLConnection&, const std::optional<Error>& error) {
    PLATFORM_ASSERT(error, "error", "-[TWLWebClientTransaction connection:didFailWithError:]", sourceFile);
    _queue.async([self = shared_from_this(), error] {
        self->_response->setError(error);
        self->complete();
    });
}

void TWLWebClientTransaction::connectionDidFinishLoading(URLConnection&) {
    _queue.async([self = shared_from_this()] { self->complete(); });
}

bool TWLWebClientTransaction::canAuthenticateAgainstProtectionSpace(
    URLConnection& connection, const platform::URLProtectionSpace& space) {
    if (space.serverTrust) {
        // The exchange needs the answer now, so the main thread waits for the queue.
        bool answer = false;
        _queue.sync([&] {
            const TWLWebRequest::ProtectionSpaceHandler& handler = _request->protectionSpaceHandler();
            answer = handler && handler(space);
        });
        return answer;
    }
    // There are no credentials. After `cancel` the connection reports nothing, so the failure is reported
    // here.
    connection.cancel();
    const auto code = static_cast<std::int64_t>(TWLWebClientError::authenticationRequired);
    didFailWithError(connection, Error{std::string(TWLWebClientErrorDomain), code, {}});
    return false;
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
    PLATFORM_ASSERT(_completionHandler, "_completionHandler", "-[TWLWebClientTransaction complete]",
                    sourceFile);
    _response->setBody(objectFromReceivedData());
    _completionHandler(_response);
    // The handler usually owns this transaction: break the cycle.
    setCompletionHandler(nullptr);
}
