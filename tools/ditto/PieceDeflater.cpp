#include "ditto/PieceDeflater.h"

#include "ditto/DeflateBlocks.h"
#include "ditto/Failure.h"

#include <libdeflate.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

namespace ditto {
namespace {

constexpr int compressionLevel = 6;

} // namespace

PieceDeflater::PieceDeflater()
    : _compressor(libdeflate_alloc_compressor(compressionLevel), &libdeflate_free_compressor) {
    if (!_compressor)
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
            throw Failure(piece.file->path + " became shorter while it was read; archive it again");
        else if (errno != EINTR)
            throw Failure(errno, "read", piece.file->path);
    }
}

DeflatedPiece PieceDeflater::deflate(const Piece& piece) {
    read(piece);
    DeflatedPiece result;
    result.isStored = false;
    result.crc32 = libdeflate_crc32(0, _input.get(), piece.size);
    const std::size_t bound = libdeflate_deflate_compress_bound(_compressor.get(), piece.size);
    result.buffer = std::make_unique_for_overwrite<std::uint8_t[]>(bound + deflateContinuationSize +
                                                                   deflateStreamPadding);
    result.size =
        libdeflate_deflate_compress(_compressor.get(), _input.get(), piece.size, result.buffer.get(), bound);
    if (!piece.isLast()) {
        std::memset(result.buffer.get() + result.size, 0, deflateStreamPadding);
        result.size = continueDeflateStream(result.buffer.get(), result.size);
    } else if (piece.isFirst() && result.size >= piece.size) {
        std::memcpy(result.buffer.get(), _input.get(), piece.size);
        result.size = piece.size;
        result.isStored = true;
    }
    return result;
}

} // namespace ditto
