#pragma once

#include "platform/process/ProcessTable.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

/// Finds out who started the build, from the chain of parent processes.
namespace orvane {

using ProcessLookup = std::function<std::optional<platform::ProcessRecord>(std::uint32_t identifier)>;

/// Whether a process in the chain from `start` to the system's first process, both included, has the command
/// name `name`. A look-up that returns nothing is repeated without limit, because the answer is unknown until
/// the process table can be read.
bool isProcessNameInHierarchy(std::string_view name, std::uint32_t start, const ProcessLookup& lookup);

/// The same for this process and the kernel's process table.
bool isProcessNameInHierarchy(std::string_view name);

/// Whether the Xcode app is an ancestor process. Prints a debug line.
bool isXcodeInProcessHierarchy();

/// Whether the build daemon of Xcode Bots is an ancestor process. Prints a debug line.
bool isBotsDaemonInProcessHierarchy();

} // namespace orvane
