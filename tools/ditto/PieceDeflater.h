#pragma once

#include "ditto/SourceTree.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

struct libdeflate_compressor;

namespace ditto {

/// Files are compressed in pieces of this size, each independently, so that all cores can work on one file.
/// Measured on DWARF: half the size makes the archive 1 % larger; twice the size makes it 0.5 % smaller and
/// doubles the memory.
inline constexpr std::size_t pieceSize = std::size_t{1} << 20;

/// libdeflate's level. Sizes relative to those of `zip -6`, for the dSYMs of twelve public projects that
/// Apple's tools made (21.8 MB):
///
///     level    1      2      3      4      5      6
///     size     1.067  1.003  0.999  0.996  0.979  0.976
///
/// Archiving and uploading at 100 Mbit/s take as long at level 5 as at level 2. The archives of level 5 are
/// 2.4 % smaller, which saves time on slower networks and storage of the service.
inline constexpr int compressionLevel = 5;

/// A part of a file's content.
struct Piece {
    std::shared_ptr<const SourceFile> file;
    std::uint64_t offset = 0;
    std::size_t size = 0;

    bool isFirst() const { return offset == 0; }
    bool isLast() const { return offset + size == file->size; }
};

/// A compressed piece.
struct DeflatedPiece {
    std::unique_ptr<std::uint8_t[]> buffer;
    std::size_t size = 0;
    /// Of the content, not of the compressed bytes.
    std::uint32_t crc32 = 0;
    /// The bytes are the content itself: a whole file that compression does not make smaller.
    bool isStored = true;

    std::string_view bytes() const { return {reinterpret_cast<const char*>(buffer.get()), size}; }
};

/// Reads and compresses pieces. The pieces of one file form one deflate stream. Not safe for concurrent use.
class PieceDeflater {
public:
    PieceDeflater();

    /// Throws Failure if the file cannot be read or was changed since it was opened.
    DeflatedPiece deflate(const Piece& piece);

private:
    void read(const Piece& piece);
    void deflateContent(const Piece& piece, DeflatedPiece& result) const;

    std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)> _compressor;
    std::unique_ptr<std::uint8_t[]> _input;
};

} // namespace ditto
