#include "MachO/TWLdSYM.h"

#include "platform/files/Files.h"
#include "platform/foundation/Path.h"
#include "platform/propertylist/PropertyList.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace {

constexpr std::string_view xcodePrefix = "com.apple.xcode.dsym.";

/// The first result of a recursive listing in the order of names. It is always an entry of the folder
/// itself, because a folder comes before its contents.
std::optional<std::string> firstEntry(const std::string& folder) {
    const auto names = platform::namesInDirectory(folder);
    if (!names || names->empty())
        return std::nullopt;
    const auto order = [](const std::string& name) {
        return std::tuple(name.starts_with('.'), std::string_view(name));
    };
    return *std::min_element(names->begin(), names->end(),
                             [&](const auto& a, const auto& b) { return order(a) < order(b); });
}

} // namespace

std::shared_ptr<TWLdSYM> TWLdSYM::initWithURL(const platform::URL& url) {
    const std::string bundle = url.path();
    if (!platform::isDirectory(bundle))
        return nullptr;
    const std::string folder = platform::pathByAppending(bundle, "Contents/Resources/DWARF");
    const auto entry = firstEntry(folder);
    if (!entry)
        return nullptr;
    auto infoPlist = platform::readDictionary(platform::pathByAppending(bundle, "Contents/Info.plist"));
    return std::shared_ptr<TWLdSYM>(
        new TWLdSYM(std::move(infoPlist).value_or(platform::Value::Dictionary()),
                    TWLMachOBinary::MachOBinaryWithPath(platform::pathByAppending(folder, *entry))));
}

std::shared_ptr<TWLdSYM> TWLdSYM::dSYMWithURL(const platform::URL& url) {
    return initWithURL(url);
}

std::optional<std::string> TWLdSYM::bundleIdentifier() const {
    const auto* identifier = platform::find<std::string>(_infoPlist, "CFBundleIdentifier");
    if (!identifier)
        return std::nullopt;
    return identifier->starts_with(xcodePrefix) ? identifier->substr(xcodePrefix.size()) : *identifier;
}

std::optional<platform::URL> TWLdSYM::executableURL() const {
    return _binary ? std::optional(_binary->URL()) : std::nullopt;
}

std::optional<std::string> TWLdSYM::executablePath() const {
    return _binary ? std::optional(_binary->path()) : std::nullopt;
}

std::optional<std::string> TWLdSYM::bundleVersion() const {
    return text("CFBundleVersion");
}

std::optional<std::string> TWLdSYM::shortBundleVersion() const {
    return text("CFBundleShortVersionString");
}

std::optional<std::string> TWLdSYM::text(std::string_view key) const {
    const platform::Value* value = platform::find(_infoPlist, key);
    return value ? std::optional(value->description()) : std::nullopt;
}

void TWLdSYM::enumerateUUIDs(const TWLUUIDCallback& callback) const {
    if (_binary)
        _binary->enumerateUUIDs(callback);
}
