#pragma once

#include <algorithm>
#include <string_view>
#include <vector>

/// Operations on ASCII characters, as file formats and protocols define them. Independent of the locale.
namespace platform {

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool isAlphanumeric(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Ignores the case of ASCII letters only: bytes of other characters must be equal.
inline bool equalIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lowerCase(x) == lowerCase(y); });
}

/// `text` without leading and trailing characters of `blanks`.
constexpr std::string_view trimmed(std::string_view text, std::string_view blanks) {
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? ""
                                           : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// The non-empty parts of `text` between the separators.
inline std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    while (!text.empty()) {
        const std::string_view part = text.substr(0, text.find(separator));
        if (!part.empty())
            parts.push_back(part);
        text.remove_prefix(std::min(part.size() + 1, text.size()));
    }
    return parts;
}

} // namespace platform
