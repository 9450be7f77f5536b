#pragma once

#include "platform/process/ProcessTable.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

/// Who started the build: the answer lies in the chain of parent processes.
namespace orvane {

using ProcessLookup = std::function<std::optional<platform::ProcessRecord>(std::uint32_t identifier)>;

/// Whether a process in the chain from `start` up to the system's first process, both included, has exactly
/// the command name `name`. A look-up that gives nothing is repeated without limit: while the process table
/// cannot be read there is no right answer.
bool isProcessNameInHierarchy(std::string_view name, std::uint32_t start, const ProcessLookup& lookup);

/// The same for this process and the kernel's own table.
bool isProcessNameInHierarchy(std::string_view name);

/// Whether the Xcode app is among the parents. Prints a debug line.
bool isXcodeInProcessHierarchy();

/// Whether the build daemon of Xcode Bots is among the parents. Prints a debug line.
bool isBotsDaemonInProcessHierarchy();

} // namespace orvane
