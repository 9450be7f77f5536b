#include "ditto/PieceDeflater.h"

#include "ditto/DeflateBlocks.h"
#include "ditto/Failure.h"

#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>

namespace ditto {
namespace {

/// Large enough to tell kinds of content apart, small enough to cost about 1 % of the time.
constexpr std::size_t sampleSize = std::size_t{32} << 10;

enum class Content { ordinary, repetitive, table };

/// How much of `bytes` is what stood 4 bytes before, as in tables of rising 32-bit numbers.
bool looksLikeTable(const std::uint8_t* bytes, std::size_t size) {
    std::size_t same = 0;
    for (std::size_t i = 4; i < size; ++i)
        same += bytes[i] == bytes[i - 4];
    return same >= size / 2;
}

/// Names and code shrink to a fifth and less; there a longer search gains most and costs least.
Content classify(libdeflate_compressor* sampler, const std::uint8_t* bytes, std::size_t size) {
    if (size < 2 * sampleSize)
        return Content::ordinary;
    std::array<std::uint8_t, sampleSize / 5> space;
    if (libdeflate_deflate_compress(sampler, bytes + size / 2, sampleSize, space.data(), space.size()) != 0)
        return Content::repetitive;
    return looksLikeTable(bytes, size) ? Content::table : Content::ordinary;
}

/// libdeflate leaves out matches of 3 bytes where few different bytes occur, and so makes tables (those of
/// __apple_names among them) twice as large as zlib does. Returns the size, and joins pieces as
/// continueDeflateStream does.
std::size_t deflateTable(std::uint8_t* input, std::size_t size, bool isLast, DeflatedPiece& result) {
    z_stream deflater = {};
    if (deflateInit2(&deflater, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, MAX_MEM_LEVEL - 1,
                     Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::bad_alloc();
    const std::size_t bound = deflateBound(&deflater, size) + deflateContinuationSize;
    result.buffer = std::make_unique_for_overwrite<std::uint8_t[]>(bound);
    deflater.next_in = input;
    deflater.avail_in = static_cast<uInt>(size);
    deflater.next_out = result.buffer.get();
    deflater.avail_out = static_cast<uInt>(bound);
    ::deflate(&deflater, isLast ? Z_FINISH : Z_SYNC_FLUSH);
    const bool isWhole = deflater.avail_in == 0 && deflater.avail_out > 0;
    deflateEnd(&deflater);
    if (!isWhole)
        throw std::logic_error("zlib found no room within its own bound");
    return deflater.total_out;
}

/// Whoever reads the last piece of a file sees every change that any piece of it may show. Asking after each
/// one keeps a large file from being read to its end in vain.
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
    : _sampler(libdeflate_alloc_compressor(1), &libdeflate_free_compressor),
      _fastCompressor(libdeflate_alloc_compressor(6), &libdeflate_free_compressor),
      _thoroughCompressor(libdeflate_alloc_compressor(7), &libdeflate_free_compressor) {
    if (!_sampler || !_fastCompressor || !_thoroughCompressor)
        throw std::bad_alloc();
}

void PieceDeflater::read(const Piece& piece) {
    if (_inputCapacity < piece.size) {
        _input = std::make_unique_for_overwrite<std::uint8_t[]>(piece.size);
        _inputCapacity = piece.size;
    }
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

std::size_t PieceDeflater::deflate(libdeflate_compressor* compressor, const Piece& piece,
                                   DeflatedPiece& result) const {
    const std::size_t bound = libdeflate_deflate_compress_bound(compressor, piece.size);
    result.buffer = std::make_unique_for_overwrite<std::uint8_t[]>(bound + deflateContinuationSize +
                                                                   deflateStreamPadding);
    const std::size_t size =
        libdeflate_deflate_compress(compressor, _input.get(), piece.size, result.buffer.get(), bound);
    if (piece.isLast())
        return size;
    std::memset(result.buffer.get() + size, 0, deflateStreamPadding);
    return continueDeflateStream(result.buffer.get(), size);
}

DeflatedPiece PieceDeflater::deflate(const Piece& piece) {
    read(piece);
    DeflatedPiece result;
    result.crc32 = libdeflate_crc32(0, _input.get(), piece.size);
    switch (classify(_sampler.get(), _input.get(), piece.size)) {
    case Content::ordinary:
        result.size = deflate(_fastCompressor.get(), piece, result);
        break;
    case Content::repetitive:
        result.size = deflate(_thoroughCompressor.get(), piece, result);
        break;
    case Content::table:
        result.size = deflateTable(_input.get(), piece.size, piece.isLast(), result);
        break;
    }
    result.isStored = piece.isFirst() && piece.isLast() && result.size >= piece.size;
    if (result.isStored) {
        std::memcpy(result.buffer.get(), _input.get(), piece.size);
        result.size = piece.size;
    }
    return result;
}

} // namespace ditto
