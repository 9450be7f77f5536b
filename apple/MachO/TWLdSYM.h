#pragma once

#include "MachO/TWLMachOBinary.h"
#include "platform/foundation/URL.h"
#include "platform/foundation/Value.h"

#include <memory>
#include <optional>
#include <string>

/// A dSYM bundle: a folder with "Contents/Info.plist" (XML or binary) and, in "Contents/Resources/DWARF",
/// the Mach-O file that contains the debug information. Everything is read when the object is made. Not safe
/// for concurrent use.
class TWLdSYM {
public:
    /// Null if there is no folder at `url` or if its "Contents/Resources/DWARF" is empty. Prints nothing.
    /// Uses only the first entry of the DWARF folder, in the order of names. Hidden entries such as
    /// ".DS_Store" come last, because they contain no symbols. If TWLMachOBinary cannot open the entry, the
    /// object has no executable.
    static std::shared_ptr<TWLdSYM> initWithURL(const platform::URL& url);

    /// Same as initWithURL.
    static std::shared_ptr<TWLdSYM> dSYMWithURL(const platform::URL& url);

    /// The identifier of the app that the symbols belong to: the bundle's identifier without Xcode's prefix
    /// "com.apple.xcode.dsym.". Null if the Info.plist contains no text for it.
    std::optional<std::string> bundleIdentifier() const;

    /// The file that contains the debug information; null if it could not be opened.
    std::optional<platform::URL> executableURL() const;
    std::optional<std::string> executablePath() const;

    /// "CFBundleVersion" and "CFBundleShortVersionString" of the Info.plist. For a value that is not text,
    /// the result of platform::Value::description. Null if the key is missing.
    std::optional<std::string> bundleVersion() const;
    std::optional<std::string> shortBundleVersion() const;

    /// Like TWLMachOBinary's. Does nothing if there is no executable.
    void enumerateUUIDs(const TWLUUIDCallback& callback) const;

private:
    TWLdSYM(platform::Value::Dictionary infoPlist, std::shared_ptr<TWLMachOBinary> binary)
        : _infoPlist(std::move(infoPlist)), _binary(std::move(binary)) {}
    std::optional<std::string> text(std::string_view key) const;

    platform::Value::Dictionary _infoPlist;
    std::shared_ptr<TWLMachOBinary> _binary;
};
