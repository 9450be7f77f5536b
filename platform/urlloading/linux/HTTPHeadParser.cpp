#include "platform/urlloading/linux/HTTPHeadParser.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/UTF8.h"

#include <algorithm>
#include <charconv>

namespace platform {

/// `bytes` as UTF-8 text. If they are not UTF-8, they are read as ISO 8859-1 (RFC 9110 section 5.5).
static std::string headerText(std::string_view bytes) {
    auto text = decodeUTF8(bytes);
    return text ? *std::move(text) : decodeWideText(bytes, 1, true).text;
}

bool HTTPHeadParser::addLine(std::string_view line) {
    line = line.substr(0, line.find_last_not_of("\r\n") + 1);
    if (line.empty())
        return true;
    if (line.starts_with("HTTP/"))
        startHead(line);
    else
        addField(line);
    return false;
}

void HTTPHeadParser::startHead(std::string_view statusLine) {
    _head = HTTPResponseHead();
    _lastField = _head.allHeaderFields.end();
    const std::size_t code = std::min(statusLine.find(' '), statusLine.size() - 1) + 1;
    std::from_chars(statusLine.data() + code, statusLine.data() + statusLine.size(), _head.statusCode);
}

void HTTPHeadParser::addField(std::string_view line) {
    HTTPHeaders& fields = _head.allHeaderFields;
    // A folded line continues the value of the field before it (RFC 9112 section 5.2).
    if (httpBlanks.find(line.front()) != std::string_view::npos && _lastField != fields.end()) {
        _lastField->second.append(1, ' ').append(headerText(trimmed(line, httpBlanks)));
        return;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos)
        return;
    const std::string value = headerText(trimmed(line.substr(colon + 1), httpBlanks));
    const auto [field, isNew] = fields.emplace(headerText(trimmed(line.substr(0, colon), httpBlanks)), value);
    if (!isNew)
        field->second.append(", ").append(value);
    _lastField = field;
}

} // namespace platform
