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
    /// path.
    static DesktopEntry find(const std::string& folder, std::string_view identifier);

    /// A string value with its escape sequences replaced; empty if there is none.
    std::string text(std::string_view key) const;

    /// The absolute path of the program and its arguments for the first of `urls`, or for all of them if the
    /// entry accepts a list. Removes these from `urls`, which must not be empty. Returns an empty list if
    /// the entry is hidden or not an application, if its Exec value is malformed, or if its program is not
    /// installed.
    std::vector<std::string> command(std::span<const URL>& urls) const;
};

} // namespace platform
