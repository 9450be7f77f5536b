#pragma once

#include "platform/urlloading/HTTPTransfer.h"
#include "platform/urlloading/linux/GzipReader.h"
#include "platform/urlloading/linux/HTTPHeadParser.h"

#include <curl/curl.h>

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// Ends an exchange because its answer is not acceptable. `result` is the closest code of libcurl.
struct AnswerRefusal : std::exception {
    AnswerRefusal(CURLcode why, std::string text) : result(why), reason(std::move(text)) {}
    CURLcode result;
    std::string reason;
};

/// Reads one answer: parses its head, decodes its body, and passes both to the listener.
class HTTPAnswerReader {
public:
    /// Both must outlive the reader.
    HTTPAnswerReader(const URLRequest& request, HTTPExchangeListener& listener)
        : _request(request), _listener(listener) {}

    /// Takes a line of a head or of the trailer. Returns true if the line completes the head of the server's
    /// answer or of a proxy's answer to CONNECT, false otherwise and for interim answers (1xx). Throws
    /// AnswerRefusal.
    bool addLine(std::string_view line);
    const HTTPResponseHead& head() const { return _heads.head(); }

    /// Passes the head to the listener. The body follows.
    void beginBody();
    bool hasHead() const { return _hasHead; }

    /// Decodes a part of the body. Passes on the bytes before a fault, then throws AnswerRefusal.
    void addBody(std::string_view bytes);
    /// Whether a compressed body has not reached its end.
    bool isTruncated() const { return _gzip && !_gzip->isComplete(); }

private:
    void addDecoded(std::string_view bytes);

    const URLRequest& _request;
    HTTPExchangeListener& _listener;
    HTTPHeadParser _heads;
    std::size_t _headBytes = 0;
    bool _hasHead = false;
    std::optional<GzipReader> _gzip;
    std::uint64_t _decodedBytes = 0;
};

} // namespace platform
