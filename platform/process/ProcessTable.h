#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// What the kernel's process table says about one process; all zero for a process that is not there.
struct ProcessRecord {
    std::uint32_t identifier = 0;
    std::uint32_t parentIdentifier = 0;
    /// The short command name as the kernel keeps it, cut to its length; any bytes.
    std::string commandName;
};

std::uint32_t ownProcessIdentifier();

/// The record of one process. A process that does not exist, is the idle process 0 or is hidden from this
/// user has the all-zero record. Nothing when the table could not be asked just now. A process that has no
/// descriptor left can still ask: one is kept for that from the start of the program.
std::optional<ProcessRecord> processRecord(std::uint32_t identifier);

} // namespace platform
