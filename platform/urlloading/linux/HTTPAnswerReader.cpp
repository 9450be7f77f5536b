#include "platform/urlloading/linux/HTTPAnswerReader.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"

namespace platform {

// Without a limit, a server could send headers until the memory is full.
constexpr std::size_t headLimit = std::size_t(256) * 1024;

bool HTTPAnswerReader::addLine(std::string_view line) {
    _headBytes += line.size();
    if (_headBytes > headLimit)
        throw AnswerRefusal(CURLE_WEIRD_SERVER_REPLY, "the head of its answer is longer than 256 KiB");
    return _heads.addLine(line) && !_hasHead && head().statusCode >= 200;
}

void HTTPAnswerReader::beginBody() {
    _hasHead = true;
    const auto coding = head().allHeaderFields.find("Content-Encoding");
    if (coding != head().allHeaderFields.end() && !equalIgnoringCase(coding->second, "identity"))
        _gzip.emplace();
    _listener.didReceiveHead(head());
}

void HTTPAnswerReader::addBody(std::string_view bytes) {
    if (!_gzip)
        return addDecoded(bytes);
    const std::string& coding = head().allHeaderFields.find("Content-Encoding")->second;
    if (!equalIgnoringCase(coding, "gzip") && !equalIgnoringCase(coding, "x-gzip"))
        throw AnswerRefusal(CURLE_BAD_CONTENT_ENCODING, "its content coding is not gzip");
    if (!_gzip->read(bytes, [this](std::string_view decoded) { addDecoded(decoded); }))
        throw AnswerRefusal(CURLE_BAD_CONTENT_ENCODING, "the compressed data is damaged");
}

void HTTPAnswerReader::addDecoded(std::string_view bytes) {
    const std::uint64_t room = _request.answerLimit - _decodedBytes;
    const std::string_view kept = bytes.substr(0, room);
    _decodedBytes += kept.size();
    if (!kept.empty())
        _listener.didReceiveBody(kept);
    if (kept.size() < bytes.size())
        throw AnswerRefusal(CURLE_FILESIZE_EXCEEDED, format("its answer is longer than %@ bytes",
                                                            std::to_string(_request.answerLimit)));
}

} // namespace platform
