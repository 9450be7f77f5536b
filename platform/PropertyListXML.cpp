#include "platform/PropertyListXML.h"

#include "platform/ASCII.h"
#include "platform/PropertyListGuard.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <climits>
#include <memory>
#include <optional>
#include <vector>

namespace platform {
namespace {

constexpr std::string_view blanks = " \t\r\n";

/// All of `text` as a number; a "+" may precede it.
template <class Number, class... Format>
std::optional<Number> wholeNumber(std::string_view text, Format... format) {
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, format...);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::optional<std::int64_t> readInteger(std::string_view text) {
    if (!text.starts_with("0x") && !text.starts_with("0X"))
        return wholeNumber<std::int64_t>(text);
    return text.find_first_of("+-") == std::string_view::npos ? wholeNumber<std::int64_t>(text.substr(2), 16)
                                                              : std::nullopt;
}

/// The form of http://www.apple.com/DTDs/PropertyList-1.0.dtd: "2001-01-01T00:00:00Z".
std::optional<Date> readDate(std::string_view text) {
    constexpr std::string_view form = "0000-00-00T00:00:00Z";
    if (text.size() != form.size())
        return std::nullopt;
    for (std::size_t i = 0; i < form.size(); ++i)
        if (form[i] == '0' ? !isDigit(text[i]) : text[i] != form[i])
            return std::nullopt;
    const auto field = [&](std::size_t start, std::size_t size) {
        return *wholeNumber<unsigned>(text.substr(start, size));
    };
    const std::chrono::year_month_day day(std::chrono::year(static_cast<int>(field(0, 4))),
                                          std::chrono::month(field(5, 2)), std::chrono::day(field(8, 2)));
    if (!day.ok() || field(11, 2) > 23 || field(14, 2) > 59 || field(17, 2) > 60)
        return std::nullopt;
    using namespace std::chrono_literals;
    const auto days = std::chrono::sys_days(day) - std::chrono::sys_days(2001y / 1 / 1);
    return Date{static_cast<double>(days.count()) * 86400 + field(11, 2) * 3600 + field(14, 2) * 60 +
                field(17, 2)};
}

int base64Digit(char c) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t digit = digits.find(c);
    return digit == std::string_view::npos ? -1 : static_cast<int>(digit);
}

/// RFC 4648 section 4 with blanks anywhere; the padding may be missing.
std::optional<Data> readBase64(std::string_view text) {
    std::string bytes;
    unsigned pending = 0;
    unsigned pendingBits = 0;
    bool padded = false;
    for (const char c : text) {
        if (blanks.find(c) != std::string_view::npos)
            continue;
        if (c == '=') {
            padded = true;
            continue;
        }
        const int digit = base64Digit(c);
        if (digit < 0 || padded)
            return std::nullopt;
        pending = (pending << 6 | static_cast<unsigned>(digit)) & 0xFFFF;
        pendingBits += 6;
        if (pendingBits < 8)
            continue;
        pendingBits -= 8;
        bytes += static_cast<char>(pending >> pendingBits & 0xFF);
    }
    return pendingBits == 6 ? std::nullopt : std::optional(Data(std::move(bytes)));
}

template <class T>
std::optional<Value> valueOf(std::optional<T> content) {
    return content ? std::optional<Value>(std::move(*content)) : std::nullopt;
}

std::optional<Value> readLeaf(std::string_view element, std::string text) {
    const std::string_view content = trimmed(text, blanks);
    if (element == "string")
        return Value(std::move(text));
    if (element == "integer")
        return valueOf(readInteger(content));
    if (element == "real")
        return valueOf(wholeNumber<double>(content));
    if (element == "date")
        return valueOf(readDate(content));
    if (element == "data")
        return valueOf(readBase64(content));
    return content.empty() ? std::optional<Value>(element == "true") : std::nullopt;
}

std::string tag(std::string_view element) {
    return std::string("<").append(element).append(">");
}

bool isLeaf(std::string_view element) {
    constexpr std::array<std::string_view, 8> leaves = {"key",  "string", "integer", "real",
                                                        "date", "data",   "true",    "false"};
    return std::find(leaves.begin(), leaves.end(), element) != leaves.end();
}

/// Builds the value while expat reports the document's parts.
class Reader {
public:
    Reader();

    Result<Value> read(std::string_view bytes);

private:
    struct Container {
        Value value;
        std::optional<std::string> key; // of the value to come
    };

    /// Ends the parsing; of several problems the first counts.
    void fail(std::string reason);
    void start(std::string_view element);
    void end(std::string_view element);
    void text(std::string_view characters);
    bool mayStart(std::string_view element) const;
    void add(Value value);
    std::string position() const;

    std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> _parser;
    std::string _problem;
    bool _insidePlist = false;
    std::optional<std::string> _leaf; // its text so far, while inside one
    std::vector<Container> _containers;
    std::optional<Value> _root;
};

Reader::Reader() : _parser(XML_ParserCreate(nullptr), &XML_ParserFree) {
    if (!_parser)
        throw std::bad_alloc();
    XML_SetUserData(_parser.get(), this);
    XML_SetElementHandler(
        _parser.get(),
        [](void* self, const char* name, const char**) { static_cast<Reader*>(self)->start(name); },
        [](void* self, const char* name) { static_cast<Reader*>(self)->end(name); });
    XML_SetCharacterDataHandler(_parser.get(), [](void* self, const char* characters, int size) {
        static_cast<Reader*>(self)->text({characters, static_cast<std::size_t>(size)});
    });
    XML_SetStartDoctypeDeclHandler(
        _parser.get(), [](void* self, const char*, const char*, const char*, int hasInternalSubset) {
            if (hasInternalSubset)
                static_cast<Reader*>(self)->fail("it declares a document type of its own");
        });
    XML_SetSkippedEntityHandler(_parser.get(), [](void* self, const char* name, int) {
        static_cast<Reader*>(self)->fail("the entity \"" + std::string(name) + "\" is unknown");
    });
}

std::string Reader::position() const {
    return " in line " + std::to_string(XML_GetCurrentLineNumber(_parser.get()));
}

void Reader::fail(std::string reason) {
    if (_problem.empty())
        _problem = std::move(reason) + position();
    XML_StopParser(_parser.get(), XML_FALSE);
}

bool Reader::mayStart(std::string_view element) const {
    if (!_insidePlist || _leaf)
        return false;
    if (_containers.empty())
        return !_root && element != "key";
    const Container& parent = _containers.back();
    if (element == "key")
        return !parent.key && parent.value.as<Value::Dictionary>();
    return parent.key || parent.value.as<Value::Array>();
}

void Reader::start(std::string_view element) {
    if (!_problem.empty())
        return;
    if (element == "plist" && !_insidePlist) {
        _insidePlist = true;
    } else if (!mayStart(element)) {
        fail(tag(element) + " stands where it may not");
    } else if (isLeaf(element)) {
        _leaf.emplace();
    } else if (element != "array" && element != "dict") {
        fail(tag(element) + " is no element of property lists");
    } else if (_containers.size() == propertyListDepthLimit) {
        fail("it is nested deeper than 512 levels");
    } else {
        _containers.push_back({element == "array" ? Value(Value::Array()) : Value(Value::Dictionary()), {}});
    }
}

void Reader::text(std::string_view characters) {
    if (_leaf)
        *_leaf += characters;
    else if (!trimmed(characters, blanks).empty())
        fail("text stands between elements");
}

void Reader::end(std::string_view element) {
    if (!_problem.empty() || element == "plist")
        return;
    if (!isLeaf(element)) {
        Container container = std::move(_containers.back());
        _containers.pop_back();
        if (container.key)
            return fail("the last key of a dictionary has no value");
        return add(std::move(container.value));
    }
    std::string content = std::move(*_leaf);
    _leaf.reset();
    if (element == "key") {
        _containers.back().key = std::move(content);
        return;
    }
    if (auto value = readLeaf(element, std::move(content)))
        add(std::move(*value));
    else
        fail("the content of " + tag(element) + " is malformed");
}

void Reader::add(Value value) {
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

Result<Value> Reader::read(std::string_view bytes) {
    if (bytes.size() > INT_MAX)
        return corruptPropertyList("it is larger than 2 GiB");
    const auto status = XML_Parse(_parser.get(), bytes.data(), static_cast<int>(bytes.size()), XML_TRUE);
    if (_problem.empty() && status != XML_STATUS_OK)
        _problem = XML_ErrorString(XML_GetErrorCode(_parser.get())) + position();
    if (_problem.empty() && !_root)
        _problem = "it holds no value";
    return _problem.empty() ? Result<Value>(std::move(*_root)) : corruptPropertyList(_problem);
}

} // namespace

Result<Value> parseXMLPropertyList(std::string_view bytes) {
    return Reader().read(bytes);
}

} // namespace platform
