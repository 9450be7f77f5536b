#pragma once

#include <cstddef>
#include <cstdint>

namespace ditto {

/// How many bytes behind a stream `findLastBlock` may look at; they need not mean anything.
inline constexpr std::size_t deflateStreamPadding = 8;

/// How many bytes `continueDeflateStream` adds at most.
inline constexpr std::size_t deflateContinuationSize = 5;

/// Bit offsets into a deflate stream (RFC 1951); bit 0 is the lowest of the first byte.
struct DeflateBlock {
    std::size_t headerBit = 0;
    /// The first bit behind the block.
    std::size_t endBit = 0;
};

/// The last block of the complete deflate stream of `size` bytes at `stream`. Symbols are skipped, not
/// decoded, which takes a fraction of an inflate's time. Throws std::logic_error when the bytes are no such
/// stream, and reads only them and the padding.
DeflateBlock findLastBlock(const std::uint8_t* stream, std::size_t size);

/// Opens the end of a complete deflate stream, so that another stream can be put right behind it: its last
/// block is no longer marked as such, and an empty stored block fills it up to a whole byte. There must be
/// room for `deflateContinuationSize` bytes more, and the padding. Returns the new size.
std::size_t continueDeflateStream(std::uint8_t* stream, std::size_t size);

} // namespace ditto
