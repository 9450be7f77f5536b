#include "TWLWebClient/TWLWebResponse.h"

#include "platform/foundation/Format.h"

void TWLWebResponse::appendData(const platform::Data& data) {
    if (_responseData.empty()) {
        _responseData = data;
        return;
    }
    // _growing and _responseData share the buffer, so its use count is normally 2. If it is higher, a caller
    // holds a copy of _responseData, whose bytes must not change: continue in a new buffer.
    if (!_growing || _growing.use_count() > 2)
        _growing = std::make_shared<std::string>(_responseData.bytes());
    _growing->append(data.bytes());
    _responseData = platform::Data(_growing);
}

bool TWLWebResponse::wasSuccessful() const {
    // Unsigned arithmetic: codes below 200 wrap around to large numbers.
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
