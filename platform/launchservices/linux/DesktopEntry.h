#pragma once

#include "platform/foundation/Data.h"
#include "platform/foundation/URL.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// An application, as a file NAME.desktop describes it (freedesktop "Desktop Entry Specification" 1.5).
struct DesktopEntry {
    std::string path;
    /// Empty when the entry does not exist.
    Data file;

    /// The entry with this desktop file ID below `folder`. In an ID "-" can stand for the "/" of a path.
    static DesktopEntry find(const std::string& folder, std::string_view identifier);

    /// A string value with its escape sequences replaced; empty when there is none.
    std::string text(std::string_view key) const;

    /// The program, as an absolute path, and the arguments that open the first of `urls`, or all of them if
    /// the entry takes a list; those are taken out of `urls`, which must not be empty. The result is empty
    /// when the entry is hidden or no application, its Exec value is malformed, or its program is not
    /// installed.
    std::vector<std::string> command(std::span<const URL>& urls) const;
};

} // namespace platform
