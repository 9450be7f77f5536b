#include "ditto/PieceDeflater.h"

#include "ditto/DeflateBlocks.h"
#include "ditto/Failure.h"
#include "platform/files/FileCalls.h"

#include <libdeflate.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace ditto {
namespace {

/// Called after each piece. The call after the last piece finds every change; the earlier ones only end the
/// work on a large file sooner.
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
    const ssize_t size = platform::preadAll(piece.file->descriptor, _input.get(), piece.size,
                                            static_cast<off_t>(piece.offset));
    if (size < 0)
        throw Failure(errno, "read", piece.file->path);
    if (static_cast<std::size_t>(size) < piece.size)
        throw Failure::changed(piece.file->path);
    refuseChanged(*piece.file);
}

void PieceDeflater::deflateContent(const Piece& piece, DeflatedPiece& result) const {
    const std::size_t bound = libdeflate_deflate_compress_bound(_compressor.get(), piece.size);
    result.buffer = std::make_unique_for_overwrite<std::uint8_t[]>(bound + deflateContinuationSize +
                                                                   deflateStreamPadding);
    std::uint8_t* const output = result.buffer.get();
    result.size = libdeflate_deflate_compress(_compressor.get(), _input.get(), piece.size, output, bound);
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
