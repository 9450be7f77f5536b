#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// A URL that has been parsed (RFC 3986). It keeps the text that it was made from.
class URL {
public:
    /// Nothing when `text` is empty or holds a character that no URL may hold (blanks, controls, non-ASCII,
    /// any of "<>\^`{|} or a "%" without two hexadecimal digits), or when its port is no number up to 65535.
    static std::optional<URL> parse(std::string_view text);

    /// `text` resolved against `base` as RFC 3986 section 5.2 says. Nothing when `text` does not parse.
    static std::optional<URL> parse(std::string_view text, const URL& base);

    /// The file URL of a path: percent-escaped, "/" kept. A relative path is taken from the working
    /// directory.
    static URL fileURLWithPath(std::string_view path);

    const std::string& absoluteString() const { return _text; }

    /// The components as they stand in the text; empty when absent. The scheme is in lower case.
    const std::string& scheme() const { return _scheme; }
    const std::string& host() const { return _host; }
    std::optional<std::uint16_t> port() const { return _port; }
    const std::optional<std::string>& query() const { return _query; }

    /// The path with its percent escapes decoded, so that a file URL gives back its path's bytes.
    std::string path() const;

    /// The part that a relative reference gave, when the URL was resolved against a base, else the path.
    std::string relativePath() const;

    friend bool operator==(const URL& a, const URL& b) { return a._text == b._text; }

private:
    URL() = default;

    std::string _text;
    std::string _scheme;
    std::optional<std::string> _authority;
    std::string _host;
    std::optional<std::uint16_t> _port;
    std::string _path;
    std::optional<std::string> _query;
    std::optional<std::string> _fragment;
    std::string _reference;
};

/// Percent-escapes every byte of `text` but the ASCII letters, the digits and "-._~": two upper-case
/// hexadecimal digits a byte, so that the result can stand anywhere in a URL.
std::string percentEscape(std::string_view text);

} // namespace platform
