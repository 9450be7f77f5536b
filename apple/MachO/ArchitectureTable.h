#pragma once

#include <cstdint>

/// Apple's table of architectures (<mach-o/arch.h>), with its published names.
namespace macho {

struct NXArchInfo {
    const char* name;
    std::int32_t cputype;
    std::int32_t cpusubtype;
};

/// The entry for a CPU type and subtype; null if there is none. Ignores the capability bits of the subtype:
/// Mac executables have x86_64 slices with the subtype 0x80000003.
const NXArchInfo* NXGetArchInfoFromCpuType(std::int32_t cputype, std::int32_t cpusubtype);

/// The entry for the host's processor; null if there is none.
const NXArchInfo* NXGetLocalArchInfo();

} // namespace macho
