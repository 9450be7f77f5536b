#include "ditto/DeflateBlocks.h"

#include <array>
#include <bit>
#include <cstring>
#include <stdexcept>

namespace ditto {
namespace {

constexpr unsigned longestCodeword = 15;
constexpr unsigned endOfBlockSymbol = 256;
constexpr unsigned literalSymbols = 288;
constexpr unsigned distanceSymbols = 32;

// The extra bits after a symbol (RFC 1951 section 3.2.5); `index` is its position in its part of the
// alphabet. The reserved symbols at the end never occur.
constexpr unsigned lengthExtraBits(unsigned index) {
    return index < 4 || index >= 28 ? 0 : index / 4 - 1;
}
constexpr unsigned distanceExtraBits(unsigned index) {
    return index < 2 || index >= 30 ? 0 : index / 2 - 1;
}

[[noreturn]] void malformed() {
    throw std::logic_error("the compressor made a deflate stream that cannot be followed");
}

class BitReader {
    static_assert(std::endian::native == std::endian::little, "a word's lowest byte is the first one");

public:
    BitReader(const std::uint8_t* bytes, std::size_t size) : _bytes(bytes), _size(size), _next(bytes) {}

    /// Makes at least 56 bits available. Reads at most 8 bytes ahead, into the padding after the stream.
    void refill() {
        if (_next > _bytes + _size + deflateStreamPadding - sizeof _bits)
            malformed();
        std::uint64_t word;
        std::memcpy(&word, _next, sizeof word);
        _bits |= word << _available;
        _next += (63 - _available) / 8;
        _available |= 56;
    }
    /// The next bit is the lowest.
    std::uint64_t bits() const { return _bits; }
    void drop(unsigned count) {
        _bits >>= count;
        _available -= count;
    }
    unsigned take(unsigned count) {
        refill();
        const auto value = static_cast<unsigned>(_bits & ((1U << count) - 1));
        drop(count);
        return value;
    }
    std::size_t position() const { return static_cast<std::size_t>(_next - _bytes) * 8 - _available; }
    void moveToByte(std::size_t offset) {
        if (offset > _size)
            malformed();
        _next = _bytes + offset;
        _bits = 0;
        _available = 0;
    }

private:
    const std::uint8_t* _bytes;
    std::size_t _size;
    const std::uint8_t* _next;
    std::uint64_t _bits = 0;
    unsigned _available = 0;
};

struct Symbol {
    unsigned value;
    unsigned codewordLength;
};

constexpr unsigned tableBits = 10;
constexpr unsigned tableSize = 1U << tableBits;

/// What follows a symbol, as the offset of the table to use next: for a literal or length, for the distance
/// of a length, or none. The last value marks codewords that exceed the table's index.
enum Next : std::uint16_t { literalOrLength = 0, distance = tableSize, nothing, longCodeword };

struct Step {
    /// The number of bits of a symbol, including its extra bits.
    std::uint8_t skip = 0;
    Next next = longCodeword;
};
/// The entries for literals and lengths, followed by those for distances.
using StepTable = std::array<Step, std::size_t{2} * tableSize>;

Step stepFor(const Symbol& symbol, Next alphabet) {
    const auto step = [&](unsigned extraBits, Next next) {
        return Step{static_cast<std::uint8_t>(symbol.codewordLength + extraBits), next};
    };
    if (alphabet == distance)
        return step(distanceExtraBits(symbol.value), literalOrLength);
    if (symbol.value <= endOfBlockSymbol)
        return step(0, symbol.value < endOfBlockSymbol ? literalOrLength : nothing);
    return step(lengthExtraBits(symbol.value - endOfBlockSymbol - 1), distance);
}

/// A canonical Huffman code (RFC 1951 section 3.2.2).
class HuffmanCode {
public:
    HuffmanCode(const std::uint8_t* lengths, unsigned count) {
        for (unsigned symbol = 0; symbol < count; ++symbol)
            ++_counts[lengths[symbol]];
        _counts[0] = 0;
        std::array<unsigned, longestCodeword + 2> starts = {};
        for (unsigned length = 1; length <= longestCodeword; ++length)
            starts[length + 1] = starts[length] + _counts[length];
        for (unsigned symbol = 0; symbol < count; ++symbol)
            if (lengths[symbol] != 0)
                _symbols[starts[lengths[symbol]]++] = static_cast<std::uint16_t>(symbol);
    }

    /// The symbol whose codeword is in the lowest bits.
    Symbol decode(std::uint64_t bits) const {
        unsigned code = 0;
        unsigned first = 0;
        unsigned index = 0;
        for (unsigned length = 1; length <= longestCodeword; ++length, bits >>= 1) {
            code = code << 1 | static_cast<unsigned>(bits & 1);
            first <<= 1;
            if (code < first + _counts[length])
                return {_symbols[index + code - first], length};
            index += _counts[length];
            first += _counts[length];
        }
        malformed();
    }

    /// Adds entries for the codewords of at most tableBits bits.
    void fill(StepTable& table, Next alphabet) const {
        unsigned code = 0;
        unsigned index = 0;
        for (unsigned length = 1; length <= tableBits; ++length) {
            code <<= 1;
            for (unsigned end = code + _counts[length]; code < end; ++code) {
                const Step step = stepFor({_symbols[index++], length}, alphabet);
                for (unsigned bits = reversed(code, length); bits < tableSize; bits += 1U << length)
                    table[alphabet + bits] = step;
            }
        }
    }

private:
    /// Reverses the bits of a codeword, because the stream contains them in reverse order.
    static unsigned reversed(unsigned code, unsigned length) {
        unsigned result = 0;
        for (; length > 0; --length, code >>= 1)
            result = result << 1 | (code & 1);
        return result;
    }

    std::array<unsigned, longestCodeword + 1> _counts = {};
    std::array<std::uint16_t, literalSymbols> _symbols = {};
};

/// Skips the symbols of a block. The next step comes from a table instead of a branch, because the processor
/// cannot predict the order of literals and matches.
void skipSymbols(BitReader& reader, const HuffmanCode& literalCode, const HuffmanCode& distanceCode) {
    StepTable table;
    table.fill(Step());
    literalCode.fill(table, literalOrLength);
    distanceCode.fill(table, distance);
    // A local copy stays in registers.
    BitReader local = reader;
    Next next = literalOrLength;
    const auto skipOne = [&] {
        Step step = table[next + (local.bits() & (tableSize - 1))];
        if (step.next == longCodeword) [[unlikely]]
            step = stepFor((next == distance ? distanceCode : literalCode).decode(local.bits()), next);
        local.drop(step.skip);
        next = step.next;
    };
    while (next != nothing) {
        local.refill();
        skipOne();
        // Two symbols have at most 56 bits: each a codeword of 15 and 13 extra bits.
        if (next != nothing)
            skipOne();
    }
    reader = local;
}

void skipFixedBlock(BitReader& reader) {
    std::array<std::uint8_t, literalSymbols> lengths;
    for (unsigned symbol = 0; symbol < literalSymbols; ++symbol)
        lengths[symbol] = symbol < 144 ? 8 : symbol < 256 ? 9 : symbol < 280 ? 7 : 8;
    std::array<std::uint8_t, distanceSymbols> distanceLengths;
    distanceLengths.fill(5);
    skipSymbols(reader, {lengths.data(), literalSymbols}, {distanceLengths.data(), distanceSymbols});
}

/// The code lengths of a dynamic block (RFC 1951 section 3.2.7).
void skipDynamicBlock(BitReader& reader) {
    const unsigned literalCount = reader.take(5) + 257;
    const unsigned distanceCount = reader.take(5) + 1;
    const unsigned precodeCount = reader.take(4) + 4;
    constexpr std::array<std::uint8_t, 19> order = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                    11, 4,  12, 3, 13, 2, 14, 1, 15};
    std::array<std::uint8_t, order.size()> precodeLengths = {};
    for (unsigned i = 0; i < precodeCount; ++i)
        precodeLengths[order.at(i)] = static_cast<std::uint8_t>(reader.take(3));
    const HuffmanCode precode(precodeLengths.data(), precodeLengths.size());

    std::array<std::uint8_t, literalSymbols + distanceSymbols> lengths = {};
    for (unsigned filled = 0; filled < literalCount + distanceCount;) {
        reader.refill();
        const Symbol symbol = precode.decode(reader.bits());
        reader.drop(symbol.codewordLength);
        std::uint8_t length = 0;
        unsigned repeat = 1;
        if (symbol.value < 16)
            length = static_cast<std::uint8_t>(symbol.value);
        else if (symbol.value == 16 && filled > 0)
            length = lengths[filled - 1];
        if (symbol.value == 16)
            repeat = 3 + reader.take(2);
        else if (symbol.value > 16)
            repeat = symbol.value == 17 ? 3 + reader.take(3) : 11 + reader.take(7);
        for (; repeat > 0; --repeat)
            lengths.at(filled++) = length;
    }
    skipSymbols(reader, {lengths.data(), literalCount}, {lengths.data() + literalCount, distanceCount});
}

void skipStoredBlock(BitReader& reader) {
    reader.moveToByte((reader.position() + 7) / 8);
    const unsigned length = reader.take(16);
    reader.moveToByte(reader.position() / 8 + 2 + length);
}

/// Bit offsets in a deflate stream. Bit 0 is the lowest bit of the first byte.
struct Block {
    std::size_t headerBit;
    /// The first bit after the block.
    std::size_t endBit;
};

Block findLastBlock(const std::uint8_t* stream, std::size_t size) {
    BitReader reader(stream, size);
    while (true) {
        const std::size_t headerBit = reader.position();
        const bool isLast = reader.take(1) != 0;
        switch (reader.take(2)) {
        case 0:
            skipStoredBlock(reader);
            break;
        case 1:
            skipFixedBlock(reader);
            break;
        case 2:
            skipDynamicBlock(reader);
            break;
        default:
            malformed();
        }
        if (!isLast)
            continue;
        if ((reader.position() + 7) / 8 != size)
            malformed();
        return {headerBit, reader.position()};
    }
}

} // namespace

std::size_t continueDeflateStream(std::uint8_t* stream, std::size_t size) {
    const Block last = findLastBlock(stream, size);
    // The lowest bit of the header is the final mark.
    stream[last.headerBit / 8] &= static_cast<std::uint8_t>(~(1U << last.headerBit % 8));
    // The header of a stored block that is not final is three zero bits; so is the rest of the byte.
    if (last.endBit + 3 > size * 8)
        stream[size++] = 0;
    constexpr std::array<std::uint8_t, 4> emptyLengthAndComplement = {0, 0, 0xFF, 0xFF};
    std::memcpy(stream + size, emptyLengthAndComplement.data(), emptyLengthAndComplement.size());
    return size + emptyLengthAndComplement.size();
}

} // namespace ditto
