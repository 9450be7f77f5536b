#include "ditto/PieceDeflater.h"

#include "ditto/DeflateBlocks.h"
#include "ditto/Failure.h"
#include "platform/files/FileCalls.h"

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <span>
#include <stdexcept>

namespace ditto {
namespace {

/// zlib's level for tables. Its archives are as large as those of level 6, which takes four times as long.
constexpr int tableLevel = 4;

/// Enough bytes to recognise a table. Sampling whole pieces would take a twentieth of the compression time.
/// For smaller pieces, setting up zlib takes longer than compressing.
constexpr std::size_t sampleSize = std::size_t{32} << 10;

/// Whether the middle of `bytes` looks like a table of increasing 32-bit numbers: two or three of the four
/// bytes of each number equal those of the number before. If more bytes are equal, there are few different
/// numbers, which libdeflate compresses well.
bool looksLikeTable(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < sampleSize)
        return false;
    const auto sample = bytes.subspan((bytes.size() - sampleSize) / 2, sampleSize);
    std::size_t same = 0;
    for (std::size_t i = 4; i < sampleSize; ++i)
        same += sample[i] == sample[i - 4];
    return same >= sampleSize / 2 && same < sampleSize / 8 * 7;
}

/// libdeflate does not use matches of 3 bytes in data with few different bytes. It makes some tables, such
/// as those of __apple_names, twice as large as zlib does. Pieces are joined as by continueDeflateStream.
void deflateTable(std::span<const std::uint8_t> input, bool isLast, int memoryLevel, DeflatedPiece& result) {
    z_stream deflater = {};
    if (deflateInit2(&deflater, tableLevel, Z_DEFLATED, -MAX_WBITS, memoryLevel, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::bad_alloc();
    const std::size_t bound = deflateBound(&deflater, input.size()) + deflateContinuationSize;
    auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(bound);
    deflater.next_in = const_cast<std::uint8_t*>(input.data());
    deflater.avail_in = static_cast<uInt>(input.size());
    deflater.next_out = buffer.get();
    deflater.avail_out = static_cast<uInt>(bound);
    ::deflate(&deflater, isLast ? Z_FINISH : Z_SYNC_FLUSH);
    const bool isWhole = deflater.avail_in == 0 && deflater.avail_out > 0;
    deflateEnd(&deflater);
    if (!isWhole)
        throw std::logic_error("zlib found no room within its own bound");
    if (!result.buffer || deflater.total_out < result.size) {
        result.buffer = std::move(buffer);
        result.size = deflater.total_out;
    }
}

/// The check after the last piece would detect every change. The checks after other pieces stop early for a
/// large file.
void refuseChanged(const SourceFile& file) {
    struct stat status;
    if (fstat(file.descriptor.get(), &status) != 0)
        throw Failure(errno, "examine", file.path);
    const timespec& recorded = file.modificationTime;
    if (static_cast<std::uint64_t>(status.st_size) != file.size || status.st_mtim.tv_sec != recorded.tv_sec ||
        status.st_mtim.tv_nsec != recorded.tv_nsec)
        throw Failure::changed(file.path);
}

} // namespace

PieceDeflater::PieceDeflater()
    : _compressor(libdeflate_alloc_compressor(compressionLevel), &libdeflate_free_compressor),
      _input(std::make_unique_for_overwrite<std::uint8_t[]>(pieceSize)) {
    if (!_compressor)
        throw std::bad_alloc();
}

void PieceDeflater::read(const Piece& piece) {
    const ssize_t size =
        platform::readAll(piece.file->descriptor, _input.get(), piece.size, static_cast<off_t>(piece.offset));
    if (size < 0)
        throw Failure(errno, "read", piece.file->path);
    if (static_cast<std::size_t>(size) < piece.size)
        throw Failure::changed(piece.file->path);
    refuseChanged(*piece.file);
}

void PieceDeflater::deflateContent(const Piece& piece, DeflatedPiece& result) const {
    const std::span<const std::uint8_t> input(_input.get(), piece.size);
    if (looksLikeTable(input)) {
        // Uniform tables compress best in zlib's longest blocks, mixed ones in shorter blocks.
        for (const int memoryLevel : {MAX_MEM_LEVEL - 1, MAX_MEM_LEVEL})
            deflateTable(input, piece.isLast(), memoryLevel, result);
        return;
    }
    const std::size_t bound = libdeflate_deflate_compress_bound(_compressor.get(), input.size());
    result.buffer = std::make_unique_for_overwrite<std::uint8_t[]>(bound + deflateContinuationSize +
                                                                   deflateStreamPadding);
    std::uint8_t* const output = result.buffer.get();
    result.size = libdeflate_deflate_compress(_compressor.get(), input.data(), input.size(), output, bound);
    if (piece.isLast())
        return;
    std::memset(output + result.size, 0, deflateStreamPadding);
    result.size = continueDeflateStream(output, result.size);
}

DeflatedPiece PieceDeflater::deflate(const Piece& piece) {
    read(piece);
    DeflatedPiece result;
    result.crc32 = libdeflate_crc32(0, _input.get(), piece.size);
    deflateContent(piece, result);
    result.isStored = piece.isFirst() && piece.isLast() && result.size >= piece.size;
    if (result.isStored) {
        std::memcpy(result.buffer.get(), _input.get(), piece.size);
        result.size = piece.size;
    }
    return result;
}

} // namespace ditto
