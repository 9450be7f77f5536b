#include "TWLWebClient/TWLWebResponse.h"

#include "platform/foundation/Format.h"

void TWLWebResponse::appendData(const platform::Data& data) {
    if (_responseData.empty()) {
        _responseData = data;
        return;
    }
    // One owner here and one in _responseData: a third has been handed out and must not see it grow.
    if (!_growing || _growing.use_count() > 2)
        _growing = std::make_shared<std::string>(_responseData.bytes());
    _growing->append(data.bytes());
    _responseData = platform::Data(_growing);
}

bool TWLWebResponse::wasSuccessful() const {
    // Unsigned: codes below 200 wrap round and fail.
    return !_error && _statusCode - 200 < 100;
}

std::string TWLWebResponse::description() const {
    platform::Value headers;
    if (_responseHeaders)
        headers = platform::Value::Dictionary(_responseHeaders->begin(), _responseHeaders->end());
    const auto url = _requestURL ? std::optional(_requestURL->absoluteString()) : std::nullopt;
    return platform::format("{request: %@, status: %lu, body: %@, error: %@, headers: %@}", url, _statusCode,
                            _body, _error, headers);
}
