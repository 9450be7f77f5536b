#pragma once

#include "platform/foundation/Data.h"

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// The bytes of a request body as a list of pieces. Appending copies nothing: a piece shares the memory of
/// its Data.
class HTTPBody {
public:
    /// Adds `piece` at the end.
    void append(Data piece) {
        _size += piece.size();
        _pieces.push_back(std::move(piece));
    }

    /// The number of bytes in all pieces.
    std::uint64_t size() const { return _size; }
    const std::vector<Data>& pieces() const { return _pieces; }

    /// A copy of all bytes.
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

/// Reads a body from its start to its end, in parts of any size.
class HTTPBodyReader {
public:
    /// Reads `body`, which must outlive the reader.
    explicit HTTPBodyReader(const HTTPBody& body) : _body(body) {}

    /// Copies up to `capacity` bytes to `buffer` and returns their number; 0 at the end.
    std::size_t read(char* buffer, std::size_t capacity);
    bool isAtEnd() const { return _piece == _body.pieces().size(); }

private:
    const HTTPBody& _body;
    std::size_t _piece = 0;
    std::size_t _offsetInPiece = 0;
};

} // namespace platform
