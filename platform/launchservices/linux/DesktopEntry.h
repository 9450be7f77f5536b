#pragma once

#include "platform/foundation/Data.h"
#include "platform/foundation/URL.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// An application as described by a file NAME.desktop (freedesktop "Desktop Entry Specification" 1.5).
struct DesktopEntry {
    std::string path;
    /// Empty if the entry does not exist.
    Data file;

    /// Reads the entry with this desktop file ID from `folder`. A "-" in an ID can stand for the "/" of a
    /// path with up to `levels` subfolders. Without that limit, links that lead back to their own folder
    /// would multiply the paths for an ID with many dashes.
    static DesktopEntry find(const std::string& folder, std::string_view identifier, int levels = 4);

    /// A string value with its escape sequences replaced; empty if there is none.
    std::string text(std::string_view key) const;
    /// The same in the user's language (LC_ALL, LC_MESSAGES, LANG) if the entry contains a translation.
    std::string localizedText(const std::string& key) const;

    /// Whether the user or the administrator marked the application as deleted (Hidden=true).
    bool isHidden() const;

    /// The command that opens the first of `urls`, or all of them if the entry accepts a list: the absolute
    /// path of the program and its arguments. Removes the URLs that the command opens from `urls`, which must
    /// not be empty. The command is empty if the entry does not exist, is hidden or not an application, if
    /// its Exec value is malformed, or if its program is not installed.
    std::vector<std::string> command(std::span<const URL>& urls) const;
};

} // namespace platform
