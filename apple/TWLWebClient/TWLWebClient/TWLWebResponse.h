#pragma once

#include "platform/foundation/Error.h"
#include "platform/foundation/URL.h"
#include "platform/foundation/Value.h"
#include "platform/urlloading/HTTPHeaders.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

/// The result of one request: status, headers, received bytes, decoded body and error. The transaction
/// and the client's check of the status write it before the caller's callback reads it, without a lock.
class TWLWebResponse {
public:
    /// The URL of the request.
    const std::optional<platform::URL>& requestURL() const { return _requestURL; }
    void setRequestURL(std::optional<platform::URL> URL) { _requestURL = std::move(URL); }

    /// The HTTP status; 0 if there was no answer.
    std::uint64_t statusCode() const { return _statusCode; }
    void setStatusCode(std::uint64_t statusCode) { _statusCode = statusCode; }

    /// A dictionary or array from JSON, any property list object, the received bytes, or null.
    const platform::Value& body() const { return _body; }
    void setBody(platform::Value body) { _body = std::move(body); }

    /// A transport failure, an undecodable property list, a refused authentication or an unexpected status.
    const std::optional<platform::Error>& error() const { return _error; }
    void setError(std::optional<platform::Error> error) { _error = std::move(error); }

    /// Null if there was no answer.
    const std::optional<platform::HTTPHeaders>& responseHeaders() const { return _responseHeaders; }
    void setResponseHeaders(std::optional<platform::HTTPHeaders> headers) {
        _responseHeaders = std::move(headers);
    }

    /// The bytes received so far. Copies do not change when more bytes are appended.
    const platform::Data& responseData() const { return _responseData; }
    void appendData(const platform::Data& data);

    /// Whether there is no error and the status is from 200 to 299.
    bool wasSuccessful() const;

    /// One line for logs; the same for equal responses.
    std::string description() const;

private:
    std::optional<platform::URL> _requestURL;
    std::uint64_t _statusCode = 0;
    platform::Value _body;
    std::optional<platform::Error> _error;
    std::optional<platform::HTTPHeaders> _responseHeaders;
    platform::Data _responseData;
    std::shared_ptr<std::string> _growing;
};

/// Receives the response of an exchange, once. It may keep the response.
using TWLWebCompletion = std::function<void(const std::shared_ptr<TWLWebResponse>& response)>;
