#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// The process environment as a dictionary, as Xcode exports the target's build settings to a run-script
/// phase. Names and values are bytes as the environment holds them: paths need not be UTF-8.
using BuildSettings = std::map<std::string, std::string, std::less<>>;

/// Reads an environment block (environ(7)). Of two entries of one name the first counts, as for getenv(3);
/// entries without "=" or without a name are no settings.
BuildSettings buildSettingsFromEnvironment(const char* const* environment);

/// The value of a setting, or nothing when it is absent.
std::optional<std::string> setting(const BuildSettings& buildSettings, std::string_view key);

/// "%@/%@" of two settings: plain text with one "/" between, no normalisation. An absent setting counts as
/// empty.
std::string joinedSettings(const BuildSettings& buildSettings, std::string_view folderKey,
                           std::string_view nameKey);

} // namespace orvane
