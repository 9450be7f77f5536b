#include "platform/foundation/Value.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Hexadecimal.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace platform {
namespace {

constexpr std::size_t shownDataBytes = 24;
constexpr int mostDecimals = 21; // the four zeros of 1e-4 and the 17 digits that any double needs
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

/// The fewest digits that identify the number. An exponent is used only to avoid many zeros.
std::string describeReal(double real) {
    const double size = std::abs(real);
    const bool isPlain = size == 0 || (size >= 1e-4 && size < 1e17);
    // macOS has std::to_chars for real numbers only since 13.3.
    std::array<char, 64> text;
    for (int digits = 0; digits <= mostDecimals; ++digits) {
        std::snprintf(text.data(), text.size(), isPlain ? "%.*f" : "%.*e", digits, real);
        if (std::strtod(text.data(), nullptr) == real)
            break;
    }
    return text.data();
}

std::string describeMember(const Value& value) {
    const auto* text = value.as<std::string>();
    return text ? quoted(*text) : value.description();
}

struct Describe {
    std::string operator()(std::monostate) const { return "(null)"; }
    std::string operator()(bool boolean) const { return boolean ? "1" : "0"; }
    std::string operator()(std::integral auto integer) const { return std::to_string(integer); }
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

/// The value as a double; null if it is not a number. Large integers are rounded, which is no problem for
/// callers that compare with zero and with the limits of 32-bit integers.
std::optional<double> numberIn(const Value& value) {
    if (const auto* boolean = value.as<bool>())
        return *boolean;
    if (const auto* integer = value.as<std::int64_t>())
        return static_cast<double>(*integer);
    if (const auto* large = value.as<std::uint64_t>())
        return static_cast<double>(*large);
    const auto* real = value.as<double>();
    return real ? std::optional(*real) : std::nullopt;
}

} // namespace

std::string Value::description() const {
    return std::visit(Describe(), _storage);
}

bool booleanValue(const Value& value) {
    if (const auto number = numberIn(value))
        return *number != 0;
    const auto* text = value.as<std::string>();
    return text && booleanText(*text);
}

std::int32_t integerValue(const Value& value) {
    if (const auto number = numberIn(value))
        return clamped(*number);
    const auto* text = value.as<std::string>();
    return text ? integerText(*text) : 0;
}

} // namespace platform
