#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// An entry of the kernel's process table; all zero for a process that does not exist.
struct ProcessRecord {
    std::uint32_t identifier = 0;
    std::uint32_t parentIdentifier = 0;
    /// The short command name, truncated by the kernel. Any bytes.
    std::string commandName;
};

std::uint32_t ownProcessIdentifier();

/// The record of one process. All zero if the process does not exist, is the idle process 0 or is hidden from
/// this user, or if no descriptor is free. Null if the system call failed otherwise; it may succeed later.
std::optional<ProcessRecord> processRecord(std::uint32_t identifier);

} // namespace platform
