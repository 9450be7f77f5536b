#pragma once

#include "platform/foundation/Error.h"
#include "platform/foundation/Value.h"

#include <array>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// One argument of a format, as text. A missing value (null, an empty optional) is shown as "(null)".
class FormatArgument {
public:
    /// Implicit, so that the arguments of `format` can be passed as they are.
    FormatArgument(std::string text) : _text(std::move(text)) {}
    FormatArgument(std::string_view text) : _text(text) {}
    FormatArgument(const char* text) : _text(text ? text : nullText) {}
    FormatArgument(std::nullptr_t) : _text(nullText) {}
    FormatArgument(const std::optional<std::string>& text) : _text(text.value_or(nullText)) {}
    FormatArgument(const Error& error) : _text(error.description()) {}
    FormatArgument(const std::optional<Error>& error) : _text(error ? error->description() : nullText) {}
    FormatArgument(const Value& value) : _text(value.description()) {}
    FormatArgument(std::integral auto number) : _text(std::to_string(number)) {}

    const std::string& text() const { return _text; }

private:
    static constexpr const char* nullText = "(null)";
    std::string _text;
};

/// A format literal, checked by the compiler. It contains one of "%@" (an object's description), "%i", "%d"
/// and "%lu" (an integer) for each of Args, in their order. "%%" is a percent sign.
template <class... Args>
class FormatString {
public:
    template <std::size_t N>
    consteval FormatString(const char (&literal)[N]) : _text(literal, N - 1) {
        constexpr std::array<bool, sizeof...(Args) + 1> isInteger = {
            std::integral<std::remove_cvref_t<Args>>..., false};
        std::size_t used = 0;
        for (std::size_t i = 0; i + 1 < N; ++i) {
            if (literal[i] != '%')
                continue;
            const char kind = literal[++i];
            if (kind == '%')
                continue;
            if (used == sizeof...(Args))
                throw "the format names more arguments than it is given";
            if (kind == 'l' && literal[i + 1] == 'u')
                ++i;
            else if (kind != '@' && kind != 'i' && kind != 'd')
                throw "only %@, %i, %d, %lu and %% are formats";
            if (isInteger[used] == (kind == '@'))
                throw "%@ takes objects; %i, %d and %lu take integers";
            ++used;
        }
        if (used != sizeof...(Args))
            throw "the format names fewer arguments than it is given";
    }

    std::string_view text() const { return _text; }

private:
    std::string_view _text;
};

/// Implements `format`. The compiler has checked `text` against `arguments`.
std::string formatChecked(std::string_view text, const FormatArgument* arguments);

/// Implements `format`. The compiler has checked `text` against `arguments`.
template <class... Args>
std::string format(std::type_identity_t<FormatString<Args...>> formatString, const Args&... arguments) {
    const std::array<FormatArgument, sizeof...(Args) + 1> texts = {FormatArgument(arguments)..., nullptr};
    return formatChecked(formatString.text(), texts.data());
}

} // namespace platform
