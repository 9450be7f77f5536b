#pragma once

#include "ditto/SourceTree.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

struct libdeflate_compressor;

namespace ditto {

/// A file is compressed in pieces of this size, each on its own, so that all cores work on one file too.
/// Measured on DWARF: half the size costs 1 % more archive, twice the size gains 0.5 % and doubles the
/// memory.
inline constexpr std::size_t pieceSize = std::size_t{1} << 20;

/// libdeflate's level for all content but tables: the fastest that keeps the archive within 1 % of the size
/// that `zip -6` makes. Seconds until the symbols have reached the service, which are half the archiver's
/// processor time (2 cores) and the time that the link takes (328 MB of DWARF):
///
///     level     archive             100 Mbit/s  1 Gbit/s  10 Gbit/s
///     1         1.1 s   108.8 MB           9.8       2.0        1.2
///     2         1.4 s   103.0 MB           9.6       2.2        1.5
///     4         1.6 s   101.6 MB           9.7       2.4        1.6
///     5         1.7 s   101.0 MB           9.7       2.5        1.7
///     6         2.1 s   100.4 MB          10.2       2.9        2.2
///     zip -6   13.9 s   100.4 MB          21.9      14.7       14.0
///
/// Level 4 gains 0.1 s here, but its archives are 1.2 to 1.9 % larger than those of `zip -6`; those of level
/// 5 are 0.3 % smaller to 0.7 % larger (debug information of clang and g++).
inline constexpr int compressionLevel = 5;

/// A stretch of a file's content.
struct Piece {
    std::shared_ptr<const SourceFile> file;
    std::uint64_t offset = 0;
    std::size_t size = 0;

    bool isFirst() const { return offset == 0; }
    bool isLast() const { return offset + size == file->size; }
};

/// What a piece becomes in the archive.
struct DeflatedPiece {
    std::unique_ptr<std::uint8_t[]> buffer;
    std::size_t size = 0;
    /// Of the content, not of the bytes above.
    std::uint32_t crc32 = 0;
    /// The bytes are the content itself: it is a whole file that compression does not make smaller.
    bool isStored = true;

    std::string_view bytes() const { return {reinterpret_cast<const char*>(buffer.get()), size}; }
};

/// Reads and compresses pieces. The pieces of one file, put together, are one deflate stream. An object is
/// used by one thread at a time.
class PieceDeflater {
public:
    PieceDeflater();

    /// Throws Failure when the file cannot be read, or has been written to since it was opened.
    DeflatedPiece deflate(const Piece& piece);

private:
    void read(const Piece& piece);
    void deflateContent(const Piece& piece, DeflatedPiece& result) const;

    std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)> _compressor;
    std::unique_ptr<std::uint8_t[]> _input;
};

} // namespace ditto
