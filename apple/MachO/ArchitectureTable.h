#pragma once

#include <cstdint>

/// The platform's table of architectures (<mach-o/arch.h>), under its published names.
namespace macho {

struct NXArchInfo {
    const char* name;
    std::int32_t cputype;
    std::int32_t cpusubtype;
};

/// The entry for a CPU type and subtype, or null. The capability bits of the subtype do not count: Mac
/// executables carry x86_64 with the subtype 0x80000003.
const NXArchInfo* NXGetArchInfoFromCpuType(std::int32_t cputype, std::int32_t cpusubtype);

/// The entry for the processor that this process runs on, or null when the table does not know it.
const NXArchInfo* NXGetLocalArchInfo();

} // namespace macho
