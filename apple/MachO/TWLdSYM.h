#pragma once

#include "MachO/TWLMachOBinary.h"
#include "platform/foundation/URL.h"
#include "platform/foundation/Value.h"

#include <memory>
#include <optional>
#include <string>

/// A dSYM bundle: a folder with "Contents/Info.plist" (XML or binary) and, in "Contents/Resources/DWARF", the
/// Mach-O file that holds the debug information. All is read when the object is made. Use it on one thread at
/// a time.
class TWLdSYM {
public:
    /// Null, with nothing printed, when there is no folder at `url` or nothing in its
    /// "Contents/Resources/DWARF". Of that folder only the first entry counts, by name, with hidden ones last
    /// (a Finder's ".DS_Store" holds no symbols); when it is no file that TWLMachOBinary opens, the object
    /// has no executable.
    static std::shared_ptr<TWLdSYM> initWithURL(const platform::URL& url);

    /// initWithURL.
    static std::shared_ptr<TWLdSYM> dSYMWithURL(const platform::URL& url);

    /// The identifier of the app that the symbols belong to: the bundle's, without the prefix
    /// "com.apple.xcode.dsym." that Xcode puts before it. Nothing when the Info.plist gives no text for it.
    std::optional<std::string> bundleIdentifier() const;

    /// The file that holds the debug information; nothing when it could not be opened.
    std::optional<platform::URL> executableURL() const;
    std::optional<std::string> executablePath() const;

    /// "CFBundleVersion" and "CFBundleShortVersionString" of the Info.plist: text as it stands, any other
    /// value as platform::Value describes it; nothing when the key is missing.
    std::optional<std::string> bundleVersion() const;
    std::optional<std::string> shortBundleVersion() const;

    /// TWLMachOBinary's; calls nothing when there is no executable.
    void enumerateUUIDs(const TWLUUIDCallback& callback) const;

private:
    TWLdSYM(platform::Value::Dictionary infoPlist, std::shared_ptr<TWLMachOBinary> binary)
        : _infoPlist(std::move(infoPlist)), _binary(std::move(binary)) {}
    std::optional<std::string> text(std::string_view key) const;

    platform::Value::Dictionary _infoPlist;
    std::shared_ptr<TWLMachOBinary> _binary;
};
