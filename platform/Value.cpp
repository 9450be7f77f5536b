#include "platform/Value.h"

#include "platform/ASCII.h"
#include "platform/Hexadecimal.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace platform {
namespace {

constexpr std::size_t shownDataBytes = 24;
constexpr std::string_view blanks = " \t\n\v\f\r";

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        result += c;
    }
    return result + '"';
}

std::string describe(const Data& data) {
    const std::string_view bytes = data.bytes();
    std::string result = "{length = " + std::to_string(bytes.size()) + ", bytes = 0x";
    result += hexadecimal(bytes.substr(0, shownDataBytes));
    return result + (bytes.size() > shownDataBytes ? "...}" : "}");
}

std::string describeReal(double real) {
    std::string text = std::to_string(real);
    text.erase(text.find_last_not_of('0') + 1);
    return text.ends_with('.') ? text + '0' : text;
}

std::string describeMember(const Value& value) {
    const auto* text = value.as<std::string>();
    return text ? quoted(*text) : value.description();
}

struct Describe {
    std::string operator()(std::monostate) const { return "(null)"; }
    std::string operator()(bool boolean) const { return boolean ? "1" : "0"; }
    std::string operator()(std::int64_t integer) const { return std::to_string(integer); }
    std::string operator()(double real) const { return describeReal(real); }
    std::string operator()(const std::string& text) const { return text; }
    std::string operator()(const Data& data) const { return describe(data); }
    std::string operator()(const Date& date) const {
        return "date " + describeReal(date.secondsSince2001) + " s after 2001-01-01";
    }
    std::string operator()(const Value::Array& array) const {
        std::string result = "(";
        for (const Value& element : array)
            result += (result.size() > 1 ? ", " : "") + describeMember(element);
        return result + ")";
    }
    std::string operator()(const Value::Dictionary& dictionary) const {
        std::string result = "{";
        for (const auto& [key, value] : dictionary)
            result += (result.size() > 1 ? ", " : "") + quoted(key) + " = " + describeMember(value);
        return result + "}";
    }
};

std::int32_t clamped(double number) {
    using Limits = std::numeric_limits<std::int32_t>;
    if (std::isnan(number))
        return 0;
    return static_cast<std::int32_t>(
        std::clamp(number, static_cast<double>(Limits::min()), static_cast<double>(Limits::max())));
}

bool booleanText(std::string_view text) {
    text = trimmed(text, blanks);
    if (text.starts_with('+') || text.starts_with('-'))
        text.remove_prefix(1);
    while (text.starts_with('0'))
        text.remove_prefix(1);
    return !text.empty() &&
           (std::string_view("YyTt").find(text.front()) != std::string_view::npos || isDigit(text.front()));
}

std::int32_t integerText(std::string_view text) {
    text = trimmed(text, blanks);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    double number = 0;
    for (; !text.empty() && isDigit(text.front()); text.remove_prefix(1))
        number = number * 10 + (text.front() - '0');
    return clamped(negative ? -number : number);
}

} // namespace

std::string Value::description() const {
    return std::visit(Describe(), _storage);
}

bool booleanValue(const Value& value) {
    if (const auto* boolean = value.as<bool>())
        return *boolean;
    if (const auto* integer = value.as<std::int64_t>())
        return *integer != 0;
    if (const auto* real = value.as<double>())
        return *real != 0;
    const auto* text = value.as<std::string>();
    return text && booleanText(*text);
}

std::int32_t integerValue(const Value& value) {
    if (const auto* boolean = value.as<bool>())
        return *boolean ? 1 : 0;
    if (const auto* integer = value.as<std::int64_t>())
        return clamped(static_cast<double>(*integer));
    if (const auto* real = value.as<double>())
        return clamped(*real);
    const auto* text = value.as<std::string>();
    return text ? integerText(*text) : 0;
}

} // namespace platform
