#pragma once

#include "platform/urlloading/URLResponse.h"

#include <string_view>

namespace platform {

/// Parses the heads of one HTTP answer (RFC 9110, RFC 9112) from the lines that libcurl delivers. The last
/// head that began replaces the ones before it: interim answers, and a proxy's answer about a tunnel.
///
/// libcurl's own curl_easy_nextheader is not used: in version 7.88 it returns "\r" as the value of an empty
/// header and keeps the tab of a folded line.
class HTTPHeadParser {
public:
    HTTPHeadParser() = default;
    HTTPHeadParser(const HTTPHeadParser&) = delete;
    HTTPHeadParser& operator=(const HTTPHeadParser&) = delete;

    /// Takes one line, with or without its line break. True if it completes `head`; another one may follow.
    bool addLine(std::string_view line);

    /// The head that is being parsed or was parsed last. Header names and values are UTF-8: a name or
    /// value that is not is read as ISO 8859-1.
    const HTTPResponseHead& head() const { return _head; }

private:
    void startHead(std::string_view statusLine);
    void addField(std::string_view line);

    HTTPResponseHead _head;
    HTTPHeaders::iterator _lastField = _head.allHeaderFields.end();
};

} // namespace platform
