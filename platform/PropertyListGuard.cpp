#include "platform/PropertyListGuard.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

namespace platform {
namespace {

// The layout is that of CFBinaryPList.c: 8 bytes of magic, objects, the table of their offsets, the trailer.
constexpr std::size_t magicSize = 8;
constexpr std::size_t trailerSize = 32;
constexpr std::uint64_t sizeLimit = 1u << 30;
constexpr std::uint64_t objectLimit = 1'000'000;
constexpr std::uint64_t contentLimit = 64u << 20;
/// libplist hands dates out as whole seconds in 32 bits.
constexpr double dateLimit = 2147483647;

enum Kind : std::uint8_t {
    simple = 0x0,
    integer = 0x1,
    real = 0x2,
    date = 0x3,
    data = 0x4,
    ascii = 0x5,
    utf16 = 0x6,
    uid = 0x8,
    array = 0xA,
    set = 0xC,
    dictionary = 0xD
};

struct Object {
    std::uint8_t kind;
    std::uint64_t count;   // the marker's low half, or the length that follows it
    std::uint64_t content; // offset in the document
};

/// A container on the way from the root to the object being checked.
struct Level {
    std::uint64_t index;
    std::uint64_t references; // offset of the first
    std::uint64_t referenceCount;
    std::uint64_t keyCount; // the first so many references must be text
    std::uint64_t next = 0;
};

bool isContainer(std::uint8_t kind) {
    return kind == array || kind == set || kind == dictionary;
}

class Guard {
public:
    explicit Guard(std::string_view bytes) : _bytes(bytes) {}

    /// What is wrong, or null.
    const char* check();

private:
    std::uint64_t number(std::uint64_t offset, std::uint64_t size) const;
    const char* readTrailer();
    std::optional<Object> object(std::uint64_t index) const;
    bool fits(std::uint64_t offset, std::uint64_t size) const;
    const char* enter(std::uint64_t index, bool isKey);
    const char* enterContainer(std::uint64_t index, const Object& object);
    const char* checkLeaf(const Object& object);
    const char* checkNumber(const Object& object) const;
    const char* checkText(const Object& object) const;
    const char* checkUTF16(const Object& object) const;

    std::string_view _bytes;
    std::uint64_t _offsetSize = 0;
    std::uint64_t _referenceSize = 0;
    std::uint64_t _objectCount = 0;
    std::uint64_t _root = 0;
    std::uint64_t _table = 0; // also the end of the objects
    std::vector<bool> _onPath;
    std::vector<Level> _levels;
    std::uint64_t _objects = 0;
    std::uint64_t _content = 0;
};

/// A big-endian number of 1 to 8 bytes that lie inside the document.
std::uint64_t Guard::number(std::uint64_t offset, std::uint64_t size) const {
    std::uint64_t result = 0;
    for (const char byte : _bytes.substr(offset, size))
        result = result << 8 | static_cast<unsigned char>(byte);
    return result;
}

bool Guard::fits(std::uint64_t offset, std::uint64_t size) const {
    return offset <= _table && size <= _table - offset;
}

const char* Guard::readTrailer() {
    if (_bytes.size() < magicSize + trailerSize || _bytes.size() > sizeLimit)
        return "it is cut short or larger than 1 GiB";
    if (!_bytes.starts_with("bplist00"))
        return "its version is unknown";
    const std::uint64_t trailer = _bytes.size() - trailerSize;
    _offsetSize = number(trailer + 6, 1);
    _referenceSize = number(trailer + 7, 1);
    _objectCount = number(trailer + 8, 8);
    _root = number(trailer + 16, 8);
    _table = number(trailer + 24, 8);
    if (_offsetSize < 1 || _offsetSize > 8 || _referenceSize < 1 || _referenceSize > 8)
        return "its trailer has a bad size";
    if (_table < magicSize || _table >= trailer || _objectCount > (trailer - _table) / _offsetSize ||
        _root >= _objectCount)
        return "its offset table lies outside";
    return nullptr;
}

/// The head of an object, or nothing when it does not lie inside the document.
std::optional<Object> Guard::object(std::uint64_t index) const {
    const std::uint64_t offset = number(_table + index * _offsetSize, _offsetSize);
    if (offset < magicSize || !fits(offset, 1))
        return std::nullopt;
    const std::uint64_t marker = number(offset, 1);
    Object result = {static_cast<std::uint8_t>(marker >> 4), marker & 0xF, offset + 1};
    if (result.count != 0xF ||
        !(isContainer(result.kind) || result.kind == data || result.kind == ascii || result.kind == utf16))
        return result;
    if (!fits(result.content, 1))
        return std::nullopt;
    const std::uint64_t lengthMarker = number(result.content, 1);
    const std::uint64_t size = std::uint64_t(1) << (lengthMarker & 0xF);
    if (lengthMarker >> 4 != integer || size > 8 || !fits(result.content + 1, size))
        return std::nullopt;
    return Object{result.kind, number(result.content + 1, size), result.content + 1 + size};
}

const char* Guard::checkNumber(const Object& object) const {
    const std::uint64_t size = std::uint64_t(1) << object.count;
    if (!fits(object.content, size))
        return "a number lies outside";
    switch (object.kind) {
    case integer:
        if (size > 16)
            return "an integer has a bad size";
        if (size == 16 && (number(object.content, 8) != 0 || number(object.content + 8, 8) > INT64_MAX))
            return "an integer does not fit 64 bits";
        return nullptr;
    case real:
        return size == 4 || size == 8 ? nullptr : "a real number has a bad size";
    default:
        if (size != 8)
            return "a date has a bad size";
        return std::fabs(std::bit_cast<double>(number(object.content, 8))) < dateLimit
                   ? nullptr
                   : "a date lies outside the years 1933 to 2068";
    }
}

/// libplist drops surrogates without a partner and stops at zeros; such text is no text.
const char* Guard::checkUTF16(const Object& object) const {
    bool afterLead = false;
    for (std::uint64_t i = 0; i < object.count; ++i) {
        const std::uint64_t unit = number(object.content + 2 * i, 2);
        const bool isTrail = unit >= 0xDC00 && unit <= 0xDFFF;
        if (unit == 0 || isTrail != afterLead)
            return "a text is no UTF-16";
        afterLead = unit >= 0xD800 && unit <= 0xDBFF;
    }
    return afterLead || object.count == 0 ? "a text is no UTF-16" : nullptr;
}

const char* Guard::checkText(const Object& object) const {
    const std::uint64_t unitSize = object.kind == utf16 ? 2 : 1;
    if (object.count > _table || !fits(object.content, object.count * unitSize))
        return "a text or its bytes lie outside";
    if (object.kind == utf16)
        return checkUTF16(object);
    for (const char c : _bytes.substr(object.content, object.kind == ascii ? object.count : 0))
        if (c <= 0)
            return "a text is no ASCII";
    return nullptr;
}

const char* Guard::checkLeaf(const Object& object) {
    switch (object.kind) {
    case simple:
        return object.count == 8 || object.count == 9 ? nullptr : "an object is of an unknown type";
    case integer:
    case real:
    case date:
        return checkNumber(object);
    case data:
    case ascii:
    case utf16:
        // What libplist allocates for a text in UTF-16 is four bytes a unit.
        _content += object.count > contentLimit ? contentLimit + 1 : object.count;
        return _content > contentLimit ? "it unfolds to more than 64 MiB" : checkText(object);
    case uid:
        if (!std::has_single_bit(object.count + 1) || object.count > 7 ||
            !fits(object.content, object.count + 1) || number(object.content, object.count + 1) > UINT32_MAX)
            return "a UID has a bad size";
        return nullptr;
    default:
        return "an object is of an unknown type";
    }
}

const char* Guard::enterContainer(std::uint64_t index, const Object& object) {
    if (_onPath[index])
        return "a container contains itself";
    if (_levels.size() == propertyListDepthLimit)
        return "it is nested deeper than 512 levels";
    const std::uint64_t perEntry = object.kind == dictionary ? 2 : 1;
    if (object.count > _table || !fits(object.content, object.count * perEntry * _referenceSize))
        return "a container lies outside";
    _onPath[index] = true;
    _levels.push_back(
        {index, object.content, object.count * perEntry, object.kind == dictionary ? object.count : 0});
    return nullptr;
}

const char* Guard::enter(std::uint64_t index, bool isKey) {
    if (++_objects > objectLimit)
        return "it unfolds to more than a million objects";
    const auto found = index < _objectCount ? object(index) : std::nullopt;
    if (!found)
        return "an object lies outside";
    if (isKey && found->kind != ascii && found->kind != utf16)
        return "a key is no text";
    return isContainer(found->kind) ? enterContainer(index, *found) : checkLeaf(*found);
}

const char* Guard::check() {
    const char* problem = readTrailer();
    if (problem)
        return problem;
    _onPath.resize(_objectCount);
    problem = enter(_root, false);
    while (!problem && !_levels.empty()) {
        Level& level = _levels.back();
        if (level.next == level.referenceCount) {
            _onPath[level.index] = false;
            _levels.pop_back();
            continue;
        }
        const std::uint64_t reference =
            number(level.references + level.next * _referenceSize, _referenceSize);
        const bool isKey = level.next < level.keyCount;
        ++level.next;
        problem = enter(reference, isKey);
    }
    return problem;
}

} // namespace

Error corruptPropertyList(std::string_view reason) {
    return errorWithDescription("NSCocoaErrorDomain", 3840,
                                "The property list cannot be read: " + std::string(reason));
}

Outcome checkBinaryPropertyList(std::string_view bytes) {
    const char* problem = Guard(bytes).check();
    return problem ? Outcome(corruptPropertyList(problem)) : Outcome(success);
}

} // namespace platform
