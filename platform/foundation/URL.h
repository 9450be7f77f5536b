#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// A parsed URL (RFC 3986). It keeps its original text.
class URL {
public:
    /// Null if `text` is empty, contains a character that is not allowed in a URL (blanks, controls,
    /// non-ASCII, any of "<>\^`{|} or a "%" without two hexadecimal digits), or has a port that is not a
    /// number up to 65535.
    static std::optional<URL> parse(std::string_view text);

    /// Resolves `text` against `base` (RFC 3986 section 5.2). Null if `text` is not valid.
    static std::optional<URL> parse(std::string_view text, const URL& base);

    /// The file URL of a path: percent-escaped, except "/". A relative path starts at the working directory.
    static URL fileURLWithPath(std::string_view path);

    const std::string& absoluteString() const { return _text; }

    /// The components as they stand in the text; empty if absent. The scheme is in lower case.
    const std::string& scheme() const { return _scheme; }
    const std::string& host() const { return _host; }
    std::optional<std::uint16_t> port() const { return _port; }
    const std::optional<std::string>& query() const { return _query; }

    /// The path with its percent escapes decoded.
    std::string path() const;

    /// The relative reference that was resolved against a base; otherwise the path.
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

/// Percent-escapes all bytes except ASCII letters, digits and "-._~", with upper-case hexadecimal digits.
/// The result is valid in any part of a URL.
std::string percentEscape(std::string_view text);

} // namespace platform
