#include "platform/foundation/ASCII.h"
#include "platform/propertylist/linux/PropertyListFormats.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <vector>

namespace platform {
namespace {

constexpr std::string_view blanks = " \t\r\n";
constexpr std::array<std::string_view, 8> leaves = {"key",  "string", "integer", "real",
                                                    "date", "data",   "true",    "false"};

/// Parses an optional sign, blanks, and decimal digits or "0x" with hexadecimal digits.
std::optional<Value> readInteger(std::string_view text) {
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text = trimmed(text.substr(1), blanks);
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (isHexadecimal)
        text.remove_prefix(2);
    constexpr std::uint64_t negativeLimit = std::uint64_t(1) << 63;
    const char* const textEnd = text.data() + text.size();
    std::uint64_t magnitude = 0;
    const auto [end, error] = std::from_chars(text.data(), textEnd, magnitude, isHexadecimal ? 16 : 10);
    if (end != textEnd || error != std::errc() || (isNegative && magnitude > negativeLimit))
        return std::nullopt;
    return isNegative ? Value(static_cast<std::int64_t>(0 - magnitude)) : Value(magnitude);
}

/// Null if the text is not a number. A number that is too large becomes infinity; one that is too small
/// becomes zero.
std::optional<double> readReal(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);
    const char* const textEnd = text.data() + text.size();
    double real = 0;
    const auto [end, error] = std::from_chars(text.data(), textEnd, real);
    if (end != textEnd || error == std::errc::invalid_argument)
        return std::nullopt;
    // For a number out of range, strtod(3) returns infinity or a value near 0, std::from_chars nothing.
    return error == std::errc() ? real : std::strtod(std::string(text).c_str(), nullptr);
}

std::optional<Date> readDate(std::string_view text) {
    std::string form(text);
    const bool isLeapSecond = form.ends_with(":60Z");
    if (isLeapSecond)
        form.replace(form.size() - 3, 2, "59");
    std::tm fields = {};
    const int count = std::sscanf(form.c_str(), "%11d-%2d-%2dT%2d:%2d:%2dZ", &fields.tm_year, &fields.tm_mon,
                                  &fields.tm_mday, &fields.tm_hour, &fields.tm_min, &fields.tm_sec);
    if (count != 6 || fields.tm_year < INT_MIN + 1900)
        return std::nullopt;
    fields.tm_year -= 1900;
    --fields.tm_mon;
    Date date{static_cast<double>(timegm(&fields) - epochOfDates)};
    // sscanf(3) accepts other forms, and timegm(3) accepts days that do not exist. Both differ from the date
    // when it is written again.
    if (dateText(date) != form)
        return std::nullopt;
    date.secondsSince2001 += isLeapSecond ? 1 : 0;
    return date;
}

/// Decodes Base64 (RFC 4648 section 4). Accepts blanks anywhere, and text without padding.
std::optional<Data> readBase64(std::string_view text) {
    std::string bytes;
    unsigned pending = 0;
    unsigned pendingBits = 0;
    for (const char c : text.substr(0, text.find_last_not_of("= \t\r\n") + 1)) {
        if (blanks.find(c) != std::string_view::npos)
            continue;
        const std::size_t digit = base64Digits.find(c);
        if (digit == std::string_view::npos)
            return std::nullopt;
        pending = pending << 6 | static_cast<unsigned>(digit);
        pendingBits += 6;
        if (pendingBits < 8)
            continue;
        pendingBits -= 8;
        bytes += static_cast<char>(pending >> pendingBits & 0xFF);
    }
    return pendingBits == 6 ? std::nullopt : std::optional(Data(std::move(bytes)));
}

std::optional<Value> readLeaf(std::string_view element, std::string text) {
    const std::string_view content = trimmed(text, blanks);
    if (element == "string")
        return Value(std::move(text));
    if (element == "integer")
        return readInteger(content);
    if (element == "real")
        return readReal(content);
    if (element == "date")
        return readDate(content);
    if (element == "data")
        return readBase64(content);
    return content.empty() ? std::optional<Value>(element == "true") : std::nullopt;
}

/// Builds the value from expat's events.
class Reader {
public:
    Reader() : _parser(XML_ParserCreate(nullptr), &XML_ParserFree) {
        if (!_parser)
            throw std::bad_alloc();
        XML_SetUserData(_parser.get(), this);
        XML_SetElementHandler(
            _parser.get(),
            [](void* self, const char* name, const char**) {
                guarded(self, [=](auto& r) { r.start(name); });
            },
            [](void* self, const char* name) { guarded(self, [=](auto& r) { r.end(name); }); });
        XML_SetCharacterDataHandler(_parser.get(), [](void* self, const char* characters, int size) {
            guarded(self, [=](auto& r) { r.text({characters, static_cast<std::size_t>(size)}); });
        });
        XML_SetEntityDeclHandler(_parser.get(), [](void* self, const char* name, int, auto...) {
            guarded(self, [=](auto& r) { r.fail("it declares the entity \"" + std::string(name) + "\""); });
        });
        XML_SetAttlistDeclHandler(
            _parser.get(), [](void* self, auto...) { guarded(self, [](auto& r) { r.declareAttribute(); }); });
        XML_SetSkippedEntityHandler(_parser.get(), [](void* self, const char* name, int) {
            guarded(self, [=](auto& r) { r.fail("the entity \"" + std::string(name) + "\" is unknown"); });
        });
    }

    Result<Value> read(std::string_view bytes) {
        if (bytes.size() > documentSizeLimit)
            return corruptPropertyList("it is larger than 1 GiB");
        const auto status = XML_Parse(_parser.get(), bytes.data(), static_cast<int>(bytes.size()), XML_TRUE);
        if (_exception)
            std::rethrow_exception(_exception);
        if (XML_GetErrorCode(_parser.get()) == XML_ERROR_NO_MEMORY)
            throw std::bad_alloc();
        if (status != XML_STATUS_OK)
            fail(XML_ErrorString(XML_GetErrorCode(_parser.get())));
        if (!_root)
            fail("it contains no value");
        return _problem.empty() ? Result<Value>(std::move(*_root)) : corruptPropertyList(_problem);
    }

private:
    struct Container {
        Value value;
        std::optional<std::string> key; // for the next value
    };

    /// An exception must not pass through expat, which is C code.
    template <class Step>
    static void guarded(void* self, Step step) {
        auto& reader = *static_cast<Reader*>(self);
        if (reader._exception)
            return;
        try {
            step(reader);
        } catch (...) {
            reader._exception = std::current_exception();
            XML_StopParser(reader._parser.get(), XML_FALSE);
        }
    }

    /// Stops the parser. Keeps the first error.
    void fail(const std::string& reason) {
        if (_problem.empty())
            _problem = reason + " in line " + std::to_string(XML_GetCurrentLineNumber(_parser.get()));
        XML_StopParser(_parser.get(), XML_FALSE);
    }

    void failAt(std::string_view element, const char* reason) {
        fail("<" + std::string(element) + "> " + reason);
    }

    /// expat goes through all declared attributes for each element. The limit prevents quadratic time.
    void declareAttribute() {
        if (++_attributes > 100)
            fail("it declares more than 100 attributes");
    }

    bool mayStart(std::string_view element) const {
        if (!_insidePlist || _leaf)
            return false;
        if (_containers.empty())
            return !_root && element != "key";
        const Container& parent = _containers.back();
        if (element == "key")
            return !parent.key && parent.value.as<Value::Dictionary>();
        return parent.key || parent.value.as<Value::Array>();
    }

    void start(std::string_view element) {
        if (!_problem.empty())
            return;
        if (element == "plist" && !_insidePlist)
            _insidePlist = true;
        else if (!mayStart(element))
            failAt(element, "is not allowed here");
        else if (std::find(leaves.begin(), leaves.end(), element) != leaves.end())
            _leaf.emplace();
        else if (element != "array" && element != "dict")
            failAt(element, "is not an element of property lists");
        else if (_containers.size() == documentDepthLimit)
            fail("it is nested deeper than " + std::to_string(documentDepthLimit) + " levels");
        else
            _containers.push_back({element == "array" ? Value(Value::Array()) : Value::Dictionary(), {}});
    }

    void text(std::string_view characters) {
        if (_leaf)
            *_leaf += characters;
        else if (!trimmed(characters, blanks).empty())
            fail("there is text between elements");
    }

    void end(std::string_view element) {
        if (!_problem.empty() || element == "plist")
            return;
        if (element == "key") {
            _containers.back().key = *std::exchange(_leaf, {});
        } else if (_leaf) {
            if (auto value = readLeaf(element, *std::exchange(_leaf, {})))
                add(std::move(*value));
            else
                failAt(element, "has malformed content");
        } else {
            Container container = std::move(_containers.back());
            _containers.pop_back();
            if (container.key)
                return fail("the last key of a dictionary has no value");
            add(std::move(container.value));
        }
    }

    void add(Value value) {
        if (_containers.empty()) {
            _root = std::move(value);
            return;
        }
        Container& parent = _containers.back();
        if (auto* array = parent.value.as<Value::Array>())
            array->push_back(std::move(value));
        else
            parent.value.as<Value::Dictionary>()->insert_or_assign(std::move(*parent.key), std::move(value));
        parent.key.reset();
    }

    std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> _parser;
    std::string _problem;
    std::exception_ptr _exception;
    unsigned _attributes = 0;
    bool _insidePlist = false;
    std::optional<std::string> _leaf; // the text so far of the open leaf element
    std::vector<Container> _containers;
    std::optional<Value> _root;
};

} // namespace

Result<Value> parseXMLPropertyList(std::string_view bytes) {
    // Apple's parser allows white space before the XML declaration.
    return Reader().read(bytes.substr(std::min(bytes.find_first_not_of(blanks), bytes.size())));
}

} // namespace platform
