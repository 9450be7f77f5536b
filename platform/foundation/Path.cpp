#include "platform/foundation/Path.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>

namespace platform {

bool hasZeroByte(std::string_view text) {
    return text.find('\0') != std::string_view::npos;
}

std::string pathByAppending(std::string_view path, std::string_view component) {
    if (path.empty())
        return std::string(component);
    std::string result(path);
    while (result.ends_with('/') && result.size() > 1)
        result.pop_back();
    while (component.starts_with('/'))
        component.remove_prefix(1);
    if (!result.ends_with('/'))
        result += '/';
    return result += component;
}

std::string_view pathExtension(std::string_view path) {
    while (path.ends_with('/'))
        path.remove_suffix(1);
    const std::string_view name = path.substr(path.rfind('/') + 1);
    const std::size_t dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? std::string_view() : name.substr(dot + 1);
}

std::optional<std::string> currentDirectory() {
    const std::unique_ptr<char, decltype(&std::free)> path(getcwd(nullptr, 0), &std::free);
    return path ? std::optional<std::string>(path.get()) : std::nullopt;
}

} // namespace platform
