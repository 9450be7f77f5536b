#include "platform/foundation/JSON.h"

#include "platform/foundation/UTF8.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

namespace platform {
namespace {

/// Builds a Value from the parser's events. Returning false stops the parser.
class ValueBuilder : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit ValueBuilder(Value& root) : _next(&root) {}

    bool null() override { return put(nullptr); }
    bool boolean(bool value) override { return put(value); }
    bool number_integer(number_integer_t value) override { return put(value); }
    bool number_unsigned(number_unsigned_t value) override {
        return value <= static_cast<number_unsigned_t>(INT64_MAX) ? put(static_cast<std::int64_t>(value))
                                                                  : put(static_cast<double>(value));
    }
    bool number_float(number_float_t value, const string_t&) override { return put(value); }
    bool string(string_t& value) override { return put(std::move(value)); }
    bool binary(binary_t&) override { return false; }

    bool start_object(std::size_t) override { return open(Value::Dictionary()); }
    bool start_array(std::size_t) override { return open(Value::Array()); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t& name) override {
        _next = &(*_open.back()->as<Value::Dictionary>())[std::move(name)];
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception&) override {
        return false;
    }

private:
    Value& place() {
        if (_next)
            return *std::exchange(_next, nullptr);
        return _open.back()->as<Value::Array>()->emplace_back();
    }
    bool put(Value value) {
        place() = std::move(value);
        return true;
    }
    // The pointers in `_open` stay valid: only the innermost container grows, and it contains no other.
    bool open(Value container) {
        if (_open.size() == documentDepthLimit)
            return false;
        Value& opened = place();
        opened = std::move(container);
        _open.push_back(&opened);
        return true;
    }
    bool close() {
        _open.pop_back();
        return true;
    }

    Value* _next;
    std::vector<Value*> _open;
};

std::optional<Value> parseUTF8(std::string_view text) {
    Value root;
    ValueBuilder builder(root);
    // At a zero byte the parser stops without an error, and the bytes after it would not be checked.
    if (text.find('\0') != std::string_view::npos ||
        !nlohmann::json::sax_parse(text.begin(), text.end(), &builder))
        return std::nullopt;
    return root;
}

struct Encoding {
    std::string_view mark;
    /// Which of the first bytes are zero ("0") and which are not ("x"), for a document without byte order
    /// mark. Its first two characters are ASCII (RFC 4627 section 3).
    std::string_view zeros;
    std::size_t unitSize;
    bool isBigEndian;
};

// UTF-32 first, because its little-endian mark begins with the mark of UTF-16.
constexpr Encoding wideEncodings[] = {{{"\0\0\xFE\xFF", 4}, "000x", 4, true},
                                      {{"\xFF\xFE\0\0", 4}, "x000", 4, false},
                                      {"\xFE\xFF", "0x0x", 2, true},
                                      {"\xFF\xFE", "x0x0", 2, false}};

bool hasZeros(std::string_view bytes, std::string_view zeros) {
    return bytes.size() >= zeros.size() &&
           std::equal(zeros.begin(), zeros.end(), bytes.begin(),
                      [](char zero, char byte) { return (zero == '0') == (byte == '\0'); });
}

} // namespace

std::optional<Value> parseJSON(std::string_view bytes) {
    for (const Encoding& encoding : wideEncodings) {
        const bool isMarked = bytes.starts_with(encoding.mark);
        if (!isMarked && !hasZeros(bytes, encoding.zeros))
            continue;
        bytes.remove_prefix(isMarked ? encoding.mark.size() : 0);
        const auto [text, isValid] = decodeWideText(bytes, encoding.unitSize, encoding.isBigEndian);
        return isValid ? parseUTF8(text) : std::nullopt;
    }
    return parseUTF8(bytes);
}

} // namespace platform
