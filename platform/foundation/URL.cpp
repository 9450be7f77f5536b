#include "platform/foundation/URL.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Path.h"

#include <algorithm>
#include <charconv>

namespace platform {
namespace {

constexpr std::string_view hexDigits = "0123456789ABCDEF";

bool isUnreserved(char c) {
    return isAlphanumeric(c) || std::string_view("-._~").find(c) != std::string_view::npos;
}
bool isReserved(char c) {
    return std::string_view("!*'();:@&=+$,/?#[]").find(c) != std::string_view::npos;
}

/// The byte that the escape at `i` stands for, if there is one.
std::optional<unsigned char> escapedByte(std::string_view text, std::size_t i) {
    const std::string_view digits = text.substr(i + 1, 2);
    unsigned char byte = 0;
    const auto [end, failure] = std::from_chars(digits.begin(), digits.end(), byte, 16);
    return digits.size() == 2 && end == digits.end() ? std::optional(byte) : std::nullopt;
}

bool hasOnlyURLCharacters(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == '%' ? !escapedByte(text, i) : !isUnreserved(text[i]) && !isReserved(text[i]))
            return false;
    return true;
}

std::string escapeAllBut(std::string_view text, bool (*stays)(char)) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (stays(c))
            result += c;
        else
            result += {'%', hexDigits[byte >> 4], hexDigits[byte & 0xF]};
    }
    return result;
}

/// Removes and returns the part of `text` before the first of `delimiters`.
std::string_view takeUntil(std::string_view& text, std::string_view delimiters) {
    const std::string_view taken = text.substr(0, text.find_first_of(delimiters));
    text.remove_prefix(taken.size());
    return taken;
}

/// Removes "." and ".." segments (RFC 3986 section 5.2.4).
std::string removeDotSegments(std::string_view path) {
    std::string output;
    while (!path.empty()) {
        // A segment includes the "/" before it. Only the first segment of a relative path has none.
        const std::string_view segment = path.substr(0, path.find('/', 1));
        path.remove_prefix(segment.size());
        if (segment == "/..")
            output.erase(std::min(output.rfind('/'), output.size()));
        if (segment == "/." || segment == "/..")
            output += path.empty() ? "/" : "";
        else if (segment == "." || segment == "..")
            path.remove_prefix(path.empty() ? 0 : 1);
        else
            output += segment;
    }
    return output;
}

} // namespace

std::optional<URL> URL::parse(std::string_view text) {
    if (text.empty() || !hasOnlyURLCharacters(text))
        return std::nullopt;
    URL url;
    url._text = text;
    url._reference = text;

    const std::size_t schemeEnd = text.find_first_of(":/?#");
    const auto isSchemeCharacter = [](char c) {
        return isAlphanumeric(c) || c == '+' || c == '-' || c == '.';
    };
    if (schemeEnd != std::string_view::npos && schemeEnd > 0 && text[schemeEnd] == ':' &&
        std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(schemeEnd), isSchemeCharacter)) {
        url._scheme = text.substr(0, schemeEnd);
        std::transform(url._scheme.begin(), url._scheme.end(), url._scheme.begin(), lowerCase);
        text.remove_prefix(schemeEnd + 1);
    }
    if (text.starts_with("//")) {
        text.remove_prefix(2);
        url._authority = takeUntil(text, "/?#");
        std::string_view host = *url._authority; // "user:password@host:port"; an IPv6 address is in brackets
        host.remove_prefix(host.rfind('@') + 1);
        const std::size_t colon =
            host.find(':', host.starts_with('[') ? std::min(host.find(']'), host.size()) : 0);
        url._host = host.substr(0, colon);
        if (colon != std::string_view::npos && colon + 1 < host.size()) {
            std::uint16_t port = 0;
            const char* const end = host.data() + host.size();
            const auto [last, failure] = std::from_chars(host.data() + colon + 1, end, port);
            if (failure != std::errc() || last != end)
                return std::nullopt;
            url._port = port;
        }
    }
    url._path = takeUntil(text, "?#");
    if (text.starts_with('?')) {
        text.remove_prefix(1);
        url._query = takeUntil(text, "#");
    }
    if (text.starts_with('#'))
        url._fragment = text.substr(1);
    return url;
}

std::optional<URL> URL::parse(std::string_view text, const URL& base) {
    // An empty reference is the base itself (RFC 3986 section 4.4).
    std::optional<URL> reference = text.empty() ? URL() : parse(text);
    if (!reference || !reference->_scheme.empty())
        return reference;
    // RFC 3986 section 5.2.2.
    const bool takesAuthority = !reference->_authority;
    std::string path = reference->_path;
    std::optional<std::string> query = reference->_query;
    if (takesAuthority && path.empty()) {
        path = base._path;
        if (!query)
            query = base._query;
    } else {
        if (takesAuthority && !path.starts_with('/')) {
            const bool atRoot = base._authority && base._path.empty();
            path = (atRoot ? "/" : base._path.substr(0, base._path.rfind('/') + 1)) + path;
        }
        path = removeDotSegments(path);
    }

    const auto& authority = takesAuthority ? base._authority : reference->_authority;
    // The scheme keeps the spelling of the base; `_scheme` is in lower case.
    std::string full = base._scheme.empty() ? "" : base._text.substr(0, base._scheme.size()) + ":";
    if (authority)
        full += "//" + *authority;
    full += path;
    if (query)
        full += "?" + *query;
    if (reference->_fragment)
        full += "#" + *reference->_fragment;
    std::optional<URL> resolved = parse(full);
    if (resolved)
        resolved->_reference = text;
    return resolved;
}

URL URL::fileURLWithPath(std::string_view path) {
    const std::string absolute =
        path.starts_with('/') ? std::string(path) : pathByAppending(currentDirectory().value_or("/"), path);
    const auto stays = [](char c) {
        return isUnreserved(c) || c == '/';
    };
    return *parse("file://" + escapeAllBut(absolute, stays));
}

std::string URL::path() const {
    std::string decoded;
    for (std::size_t i = 0; i < _path.size(); ++i) {
        const bool isEscape = _path[i] == '%';
        decoded += isEscape ? static_cast<char>(*escapedByte(_path, i)) : _path[i];
        i += isEscape ? 2 : 0;
    }
    return decoded;
}

std::string URL::relativePath() const {
    const std::optional<URL> reference = parse(_reference);
    return reference ? reference->path() : path();
}

std::string percentEscape(std::string_view text) {
    return escapeAllBut(text, isUnreserved);
}

} // namespace platform
