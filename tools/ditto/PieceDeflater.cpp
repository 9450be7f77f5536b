#include "ditto/PieceDeflater.h"

#include "ditto/DeflateBlocks.h"
#include "ditto/Failure.h"

#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <span>
#include <stdexcept>

namespace ditto {
namespace {

/// zlib's level for tables: its archives are as large as those of level 6, which takes four times as long.
constexpr int tableLevel = 4;

/// Enough to recognise a table by. To look at all of a piece would take a twentieth of the time of
/// compressing it, and to set up zlib for less than this takes longer than to compress it.
constexpr std::size_t sampleSize = std::size_t{32} << 10;

/// Whether the middle of `bytes` looks like a table of rising 32-bit numbers: of the four bytes of each
/// number, two or three are those of the number before. Where more are the same, few different numbers occur,
/// which libdeflate compresses well.
bool looksLikeTable(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < sampleSize)
        return false;
    const auto sample = bytes.subspan((bytes.size() - sampleSize) / 2, sampleSize);
    std::size_t same = 0;
    for (std::size_t i = 4; i < sampleSize; ++i)
        same += sample[i] == sample[i - 4];
    return same >= sampleSize / 2 && same < sampleSize / 8 * 7;
}

/// libdeflate leaves out matches of 3 bytes where few different bytes occur. It makes some tables, such as
/// those of __apple_names, twice as large as zlib does. Joins pieces as continueDeflateStream does.
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

/// The check after a file's last piece would notice every change. The checks after the others end the work on
/// a large file early.
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
    for (std::size_t filled = 0; filled < piece.size;) {
        const ssize_t got = pread(piece.file->descriptor.get(), _input.get() + filled, piece.size - filled,
                                  static_cast<off_t>(piece.offset + filled));
        if (got > 0)
            filled += static_cast<std::size_t>(got);
        else if (got == 0)
            throw Failure::changed(piece.file->path);
        else if (errno != EINTR)
            throw Failure(errno, "read", piece.file->path);
    }
    refuseChanged(*piece.file);
}

void PieceDeflater::deflateContent(const Piece& piece, DeflatedPiece& result) const {
    const std::span<const std::uint8_t> input(_input.get(), piece.size);
    if (looksLikeTable(input)) {
        // Uniform tables become smallest in the longest blocks that zlib makes, mixed ones in shorter ones.
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
