#pragma once

#include "platform/foundation/Data.h"

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// The bytes of a request body as a row of pieces. Nothing is joined or copied: a piece shares its memory
/// with the Data that it was made from.
class HTTPBody {
public:
    void append(Data piece) {
        _size += piece.size();
        _pieces.push_back(std::move(piece));
    }

    /// Bytes in all pieces.
    std::uint64_t size() const { return _size; }
    const std::vector<Data>& pieces() const { return _pieces; }

    /// All bytes in one new buffer.
    std::string bytes() const {
        std::string joined;
        joined.reserve(_size);
        for (const Data& piece : _pieces)
            joined += piece.bytes();
        return joined;
    }

private:
    std::vector<Data> _pieces;
    std::uint64_t _size = 0;
};

} // namespace platform
