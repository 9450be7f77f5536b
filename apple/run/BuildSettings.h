#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// The target's build settings, which Xcode passes to a run-script phase as its environment. Names and values
/// are bytes: a path need not be UTF-8.
using BuildSettings = std::map<std::string, std::string, std::less<>>;

/// Reads an environment block (environ(7)). The first of several entries with the same name is used, as by
/// getenv(3). Entries without "=" or without a name are ignored.
BuildSettings buildSettingsFromEnvironment(const char* const* environment);

/// The value of a setting; null if it is absent.
std::optional<std::string> setting(const BuildSettings& buildSettings, std::string_view key);

// Paths of the build's products: two settings joined with one "/", without normalization. A missing setting
// counts as empty.

std::string appInfoPlistPath(const BuildSettings& buildSettings);
std::string appDSYMPath(const BuildSettings& buildSettings);
std::string appExecutablePath(const BuildSettings& buildSettings);

} // namespace orvane
