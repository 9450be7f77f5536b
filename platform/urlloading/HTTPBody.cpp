#include "platform/urlloading/HTTPBody.h"

#include <algorithm>
#include <cstring>

namespace platform {

std::size_t HTTPBodyReader::read(char* buffer, std::size_t capacity) {
    std::size_t filled = 0;
    while (filled < capacity && !isAtEnd()) {
        const std::string_view rest = _body.pieces()[_piece].bytes().substr(_offsetInPiece);
        const std::size_t count = std::min(rest.size(), capacity - filled);
        std::memcpy(buffer + filled, rest.data(), count);
        filled += count;
        _offsetInPiece += count;
        if (count == rest.size()) {
            ++_piece;
            _offsetInPiece = 0;
        }
    }
    return filled;
}

} // namespace platform
