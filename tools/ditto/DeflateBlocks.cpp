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
constexpr unsigned tableBits = 11;

// RFC 1951, section 3.2.5; the reserved symbols at the end of both never occur.
constexpr std::array<std::uint8_t, 31> lengthExtraBits = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2,
                                                          3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0, 0, 0};
constexpr std::array<std::uint8_t, 32> distanceExtraBits = {
    0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13, 0, 0};

[[noreturn]] void malformed() {
    throw std::logic_error("the compressor made a deflate stream that cannot be followed");
}

class BitReader {
public:
    BitReader(const std::uint8_t* bytes, std::size_t size) : _bytes(bytes), _end(size * 8) {}

    /// The next 57 bits at least, the next one lowest.
    std::uint64_t peek() const {
        std::uint64_t word;
        std::memcpy(&word, _bytes + _position / 8, sizeof word);
        if constexpr (std::endian::native == std::endian::big)
            word = __builtin_bswap64(word);
        return word >> (_position % 8);
    }
    void skip(std::size_t bits) {
        _position += bits;
        if (_position > _end)
            malformed();
    }
    unsigned take(unsigned bits) {
        const auto value = static_cast<unsigned>(peek() & ((1U << bits) - 1));
        skip(bits);
        return value;
    }
    void skipToByte() { skip((8 - _position % 8) % 8); }
    std::size_t position() const { return _position; }

private:
    const std::uint8_t* _bytes;
    std::size_t _position = 0;
    std::size_t _end;
};

struct Symbol {
    unsigned value = 0;
    unsigned codewordLength = 0;
};

/// A canonical Huffman code (RFC 1951, section 3.2.2).
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

    /// The symbol whose codeword stands lowest in `bits`.
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

    /// Calls visit(symbol, the bits that its codeword starts with in the stream's order) for every symbol
    /// whose codeword has at most tableBits bits.
    template <class Visit>
    void visitShort(Visit visit) const {
        unsigned code = 0;
        unsigned index = 0;
        for (unsigned length = 1; length <= tableBits; ++length) {
            code <<= 1;
            for (unsigned i = 0; i < _counts[length]; ++i)
                visit(Symbol{_symbols[index++], length}, reversed(code++, length));
        }
    }

private:
    static unsigned reversed(unsigned code, unsigned length) {
        unsigned result = 0;
        for (; length > 0; --length, code >>= 1)
            result = result << 1 | (code & 1);
        return result;
    }

    std::array<unsigned, longestCodeword + 1> _counts = {};
    std::array<std::uint16_t, literalSymbols> _symbols = {};
};

/// The two codes of a block take turns: every match's length is followed by its distance.
enum Alphabet : std::uint8_t { literalsAndLengths, distances };

/// What to skip for the bits that stand next: one codeword with its extra bits, or several literals.
struct Step {
    enum Kind : std::uint8_t { ordinary, endOfBlock, longCodeword };
    std::uint8_t skip = 0;
    /// The part of `skip` that the table's index must hold to be sure of it.
    std::uint8_t codewordBits = 0;
    Kind kind = longCodeword;
    /// The code that the bits behind belong to.
    Alphabet next = literalsAndLengths;
};
using StepTable = std::array<Step, 1U << tableBits>;

Step stepFor(const Symbol& symbol, Alphabet alphabet) {
    const auto length = static_cast<std::uint8_t>(symbol.codewordLength);
    const auto with = [&](unsigned extraBits) {
        return static_cast<std::uint8_t>(length + extraBits);
    };
    if (alphabet == distances)
        return {with(distanceExtraBits.at(symbol.value)), length, Step::ordinary, literalsAndLengths};
    if (symbol.value < endOfBlockSymbol)
        return {length, length, Step::ordinary, literalsAndLengths};
    if (symbol.value == endOfBlockSymbol)
        return {length, length, Step::endOfBlock, literalsAndLengths};
    return {with(lengthExtraBits.at(symbol.value - endOfBlockSymbol - 1)), length, Step::ordinary, distances};
}

void fillTable(StepTable& table, const HuffmanCode& code, Alphabet alphabet) {
    table.fill(Step());
    code.visitShort([&](const Symbol& symbol, unsigned bits) {
        const Step step = stepFor(symbol, alphabet);
        for (; bits < table.size(); bits += 1U << symbol.codewordLength)
            table[bits] = step;
    });
}

/// Lets one look-up skip a run of literals and the codeword behind it, as far as the index shows them.
void joinLiterals(StepTable& table) {
    const StepTable single = table;
    for (unsigned index = 0; index < table.size(); ++index) {
        Step& step = table[index];
        while (step.kind == Step::ordinary && step.next == literalsAndLengths) {
            const Step& behind = single[index >> step.codewordBits];
            if (behind.kind == Step::longCodeword || step.codewordBits + behind.codewordBits > tableBits)
                break;
            step.codewordBits = static_cast<std::uint8_t>(step.codewordBits + behind.codewordBits);
            step.skip = static_cast<std::uint8_t>(step.skip + behind.skip);
            step.kind = behind.kind;
            step.next = behind.next;
        }
    }
}

/// Skips the symbols of a block. What comes next is looked up, not branched on: matches and literals follow
/// each other in no order that a processor could foresee.
void skipSymbols(BitReader& reader, const std::array<HuffmanCode, 2>& codes) {
    std::array<StepTable, 2> tables;
    fillTable(tables[literalsAndLengths], codes[literalsAndLengths], literalsAndLengths);
    joinLiterals(tables[literalsAndLengths]);
    fillTable(tables[distances], codes[distances], distances);
    Alphabet alphabet = literalsAndLengths;
    while (true) {
        std::uint64_t bits = reader.peek();
        unsigned skipped = 0;
        // Two steps take 48 bits at most: 20 of a length and 28 of its distance.
        for (int i = 0; i < 2; ++i) {
            Step step = tables[alphabet][bits % (1U << tableBits)];
            if (step.kind == Step::longCodeword) [[unlikely]]
                step = stepFor(codes[alphabet].decode(bits), alphabet);
            bits >>= step.skip;
            skipped += step.skip;
            alphabet = step.next;
            if (step.kind == Step::endOfBlock) [[unlikely]]
                return reader.skip(skipped);
        }
        reader.skip(skipped);
    }
}

void skipFixedBlock(BitReader& reader) {
    std::array<std::uint8_t, literalSymbols> lengths;
    for (unsigned symbol = 0; symbol < literalSymbols; ++symbol)
        lengths[symbol] = symbol < 144 ? 8 : symbol < 256 ? 9 : symbol < 280 ? 7 : 8;
    std::array<std::uint8_t, distanceSymbols> distanceLengths;
    distanceLengths.fill(5);
    skipSymbols(reader, {HuffmanCode(lengths.data(), literalSymbols),
                         HuffmanCode(distanceLengths.data(), distanceSymbols)});
}

/// RFC 1951, section 3.2.7.
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
        const Symbol symbol = precode.decode(reader.peek());
        reader.skip(symbol.codewordLength);
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
    skipSymbols(reader, {HuffmanCode(lengths.data(), literalCount),
                         HuffmanCode(lengths.data() + literalCount, distanceCount)});
}

void skipStoredBlock(BitReader& reader) {
    reader.skipToByte();
    const unsigned length = reader.take(16);
    reader.skip(16 + std::size_t{length} * 8);
}

} // namespace

DeflateBlock findLastBlock(const std::uint8_t* stream, std::size_t size) {
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

std::size_t continueDeflateStream(std::uint8_t* stream, std::size_t size) {
    const DeflateBlock last = findLastBlock(stream, size);
    stream[last.headerBit / 8] &= static_cast<std::uint8_t>(~(1U << last.headerBit % 8));
    // The header of a stored block that is not the last one is three zero bits, as the rest of the byte is.
    if (last.endBit + 3 > size * 8)
        stream[size++] = 0;
    constexpr std::array<std::uint8_t, 4> emptyLengthAndComplement = {0, 0, 0xFF, 0xFF};
    std::memcpy(stream + size, emptyLengthAndComplement.data(), emptyLengthAndComplement.size());
    return size + emptyLengthAndComplement.size();
}

} // namespace ditto
