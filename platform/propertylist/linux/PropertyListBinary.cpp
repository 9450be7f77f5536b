#include "platform/foundation/UTF8.h"
#include "platform/propertylist/linux/PropertyListFormats.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace platform {
namespace {

// The format is described in Apple's CFBinaryPList.c: 8 bytes of magic, the objects, the table of their
// offsets, the trailer.
constexpr std::size_t magicSize = 8;
constexpr std::size_t trailerSize = 32;
/// Each object takes at least this many bytes of the document: a marker, an offset and a reference to it.
constexpr std::size_t bytesPerObject = 3;
/// A document can refer to one object in many places, and each reference becomes a copy. These limits apply
/// to the copies that exceed the size of the document.
constexpr std::uint64_t sharedObjectLimit = 1'000'000;
constexpr std::uint64_t sharedContentLimit = 64u << 20;
constexpr const char* tooMuchShared = "the copies of its shared objects are too large";

enum Kind { simple, integer, real, date, data, ascii, utf16, uid = 8, array = 10, set = 12, dictionary };

struct Object {
    unsigned kind;
    std::uint64_t count;      // the marker's low half, or the length that follows it
    std::string_view content; // the object's content and all bytes after it
};

/// Reads a big-endian number of up to 8 bytes.
std::uint64_t number(std::string_view bytes) {
    std::uint64_t result = 0;
    for (const char byte : bytes)
        result = result << 8 | static_cast<unsigned char>(byte);
    return result;
}

class Reader {
public:
    explicit Reader(std::string_view bytes)
        : _bytes(bytes), _objectsLeft(sharedObjectLimit + bytes.size() / bytesPerObject),
          _contentLeft(sharedContentLimit + bytes.size()) {}

    Result<Value> read() {
        if (_bytes.size() < magicSize + trailerSize || _bytes.size() > documentSizeLimit)
            return corruptPropertyList("it is cut short or larger than 1 GiB");
        if (!_bytes.starts_with("bplist00"))
            return corruptPropertyList("its version is unknown");
        const std::size_t tableEnd = _bytes.size() - trailerSize;
        const std::string_view trailer = _bytes.substr(tableEnd);
        _offsetSize = number(trailer.substr(6, 1));
        _referenceSize = number(trailer.substr(7, 1));
        _objectCount = number(trailer.substr(8, 8));
        _table = number(trailer.substr(24, 8));
        if (_offsetSize < 1 || _offsetSize > 8 || _referenceSize < 1 || _referenceSize > 8)
            return corruptPropertyList("its trailer has a bad size");
        if (_table < magicSize || _table > tableEnd || _objectCount > (tableEnd - _table) / _offsetSize)
            return corruptPropertyList("its offset table lies outside the document");
        Value root = value(number(trailer.substr(16, 8)), 0);
        return _problem.empty() ? std::move(root) : Result<Value>(corruptPropertyList(_problem));
    }

private:
    /// Keeps the first error.
    Value fail(std::string problem) {
        if (_problem.empty())
            _problem = std::move(problem);
        return nullptr;
    }

    /// Finds the marker and content of an object. False if it is not inside the document.
    bool object(std::uint64_t index, Object& object) const {
        if (index >= _objectCount)
            return false;
        const std::uint64_t offset = number(_bytes.substr(_table + index * _offsetSize, _offsetSize));
        if (offset < magicSize || offset >= _table)
            return false;
        const std::uint64_t marker = number(_bytes.substr(offset, 1));
        object = {static_cast<unsigned>(marker >> 4), marker & 0xF,
                  _bytes.substr(offset + 1, _table - offset - 1)};
        if (object.count != 0xF || object.kind < data || object.kind == uid)
            return true;
        const std::uint64_t lengthMarker = number(object.content.substr(0, 1));
        const std::size_t size = std::size_t(1) << (lengthMarker & 0xF);
        if (lengthMarker >> 4 != integer || size > 8 || size >= object.content.size())
            return false;
        object.count = number(object.content.substr(1, size));
        object.content.remove_prefix(1 + size);
        return true;
    }

    /// Integers of 1, 2 and 4 bytes are unsigned; those of 8 bytes are signed. Values above INT64_MAX are
    /// stored in 16 bytes.
    Value numberValue(const Object& object) {
        const std::uint64_t size = object.kind == uid ? object.count + 1 : std::uint64_t(1) << object.count;
        if (size > object.content.size())
            return fail("a number lies outside the document");
        const std::size_t highSize = size > 8 ? size - 8 : 0;
        const std::uint64_t bits = number(object.content.substr(highSize, size - highSize));
        if (object.kind == uid && size <= 8) // a reference in a keyed archive; this is its form in XML
            return Value::Dictionary{{"CF$UID", bits}};
        if (object.kind == real && size == 4)
            return static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits)));
        if (object.kind == real && size == 8)
            return std::bit_cast<double>(bits);
        if (object.kind == date && size == 8)
            return Date{std::bit_cast<double>(bits)};
        if (object.kind != integer || size > 16)
            return fail("a number has a bad size");
        const std::uint64_t high = number(object.content.substr(0, highSize));
        if (size == 8 || (high == UINT64_MAX && bits > INT64_MAX))
            return static_cast<std::int64_t>(bits);
        return high == 0 ? Value(bits) : fail("an integer does not fit 64 bits");
    }

    Value contentValue(const Object& object) {
        const std::size_t unitSize = object.kind == utf16 ? 2 : 1;
        if (object.count > object.content.size() / unitSize)
            return fail("a text or data lies outside the document");
        if (object.count > _contentLeft)
            return fail(tooMuchShared);
        _contentLeft -= object.count;
        const std::string_view bytes = object.content.substr(0, object.count * unitSize);
        if (object.kind == utf16)
            return decodeWideText(bytes, 2, true).text;
        if (object.kind == data)
            return Data(std::string(bytes));
        const bool isASCII = std::all_of(bytes.begin(), bytes.end(), [](char c) { return (c & 0x80) == 0; });
        return isASCII ? Value(bytes) : fail("an ASCII text contains other characters");
    }

    Value containerValue(const Object& object, std::size_t depth) {
        if (depth == documentDepthLimit)
            return fail("it contains itself or is nested deeper than " + std::to_string(documentDepthLimit) +
                        " levels");
        const std::size_t perEntry = object.kind == dictionary ? 2 : 1;
        if (object.count > object.content.size() / (perEntry * _referenceSize))
            return fail("a container lies outside the document");
        // The elements are counted before any of them is read: `reserve` below takes memory for all of them,
        // at each level of nested arrays.
        if (object.count * perEntry > _objectsLeft)
            return fail(tooMuchShared);
        _objectsLeft -= object.count * perEntry;

        const auto element = [&](std::uint64_t i) {
            return value(number(object.content.substr(i * _referenceSize, _referenceSize)), depth + 1);
        };
        Value::Array elements;
        Value::Dictionary members;
        elements.reserve(object.kind == dictionary ? 0 : object.count);
        for (std::uint64_t i = 0; i < object.count && _problem.empty(); ++i) {
            Value first = element(i);
            if (object.kind != dictionary)
                elements.push_back(std::move(first));
            else if (auto* key = first.as<std::string>())
                members.insert_or_assign(std::move(*key), element(object.count + i));
            else
                fail("a key is not a text");
        }
        return object.kind == dictionary ? Value(std::move(members)) : Value(std::move(elements));
    }

    Value value(std::uint64_t index, std::size_t depth) {
        Object found;
        if (!object(index, found))
            return fail("an object lies outside the document");
        if (found.kind == array || found.kind == set || found.kind == dictionary)
            return containerValue(found, depth);
        if (found.kind >= data && found.kind <= utf16)
            return contentValue(found);
        if ((found.kind >= integer && found.kind <= date) || found.kind == uid)
            return numberValue(found);
        if (found.kind == simple && (found.count == 8 || found.count == 9))
            return found.count == 9;
        return found.kind == simple && found.count == 0 ? Value() : fail("an object is of an unknown type");
    }

    std::string_view _bytes;
    std::uint64_t _objectsLeft;
    std::uint64_t _contentLeft;
    std::uint64_t _offsetSize = 0;
    std::uint64_t _referenceSize = 0;
    std::uint64_t _objectCount = 0;
    std::uint64_t _table = 0; // also the end of the objects
    std::string _problem;
};

} // namespace

Result<Value> parseBinaryPropertyList(std::string_view bytes) {
    return Reader(bytes).read();
}

} // namespace platform
