#include "platform/urlloading/linux/HTTPChallenge.h"

#include "platform/foundation/ASCII.h"

#include <utility>

namespace platform {
namespace {

using Method = URLProtectionSpace::Method;

/// Removes the first element of a comma-separated list and returns it. A comma in a quoted string is not a
/// separator.
std::string_view takeElement(std::string_view& list) {
    bool isQuoted = false;
    std::size_t end = 0;
    for (; end < list.size() && (isQuoted || list[end] != ','); ++end)
        if (list[end] == '"')
            isQuoted = !isQuoted;
        else if (isQuoted && list[end] == '\\')
            ++end; // an escaped quote does not end the string
    const std::string_view element = list.substr(0, end);
    list = end < list.size() ? list.substr(end + 1) : std::string_view();
    return trimmed(element, httpBlanks);
}

/// The known scheme that the element begins with. An element "name=value" is a parameter of the scheme
/// before.
std::optional<Method> schemeOf(std::string_view element) {
    constexpr std::pair<std::string_view, Method> schemes[] = {{"Basic", Method::basic},
                                                               {"Digest", Method::digest},
                                                               {"NTLM", Method::ntlm},
                                                               {"Negotiate", Method::negotiate}};
    const std::string_view word = element.substr(0, element.find_first_of(" \t="));
    if (trimmed(element.substr(word.size()), httpBlanks).starts_with('='))
        return std::nullopt;
    for (const auto& [name, method] : schemes)
        if (equalIgnoringCase(word, name))
            return method;
    return std::nullopt;
}

} // namespace

std::optional<Method> challengeMethod(const HTTPResponseHead& head) {
    if (head.statusCode != 401 && head.statusCode != 407)
        return std::nullopt;
    const auto field =
        head.allHeaderFields.find(head.statusCode == 407 ? "Proxy-Authenticate" : "WWW-Authenticate");
    if (field == head.allHeaderFields.end())
        return std::nullopt;
    for (std::string_view list = field->second; !list.empty();)
        if (const auto method = schemeOf(takeElement(list)))
            return method;
    return std::nullopt;
}

} // namespace platform
