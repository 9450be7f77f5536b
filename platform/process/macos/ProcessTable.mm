#include "platform/process/ProcessTable.h"

#include <string.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

std::uint32_t ownProcessIdentifier() {
    return static_cast<std::uint32_t>(getpid());
}

std::optional<ProcessRecord> processRecord(std::uint32_t identifier) {
    int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, static_cast<int>(identifier)};
    // For a process that does not exist, the call succeeds and writes nothing.
    kinfo_proc process = {};
    std::size_t size = sizeof process;
    if (sysctl(name, 4, &process, &size, nullptr, 0) != 0)
        // A sandbox denies the call permanently: the process is hidden.
        return errno == EPERM ? std::optional(ProcessRecord()) : std::nullopt;
    const auto& command = process.kp_proc.p_comm;
    return ProcessRecord{.identifier = static_cast<std::uint32_t>(process.kp_proc.p_pid),
                         .parentIdentifier = static_cast<std::uint32_t>(process.kp_eproc.e_ppid),
                         .commandName = std::string(command, strnlen(command, sizeof command))};
}

} // namespace platform
