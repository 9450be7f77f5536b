#include "MachO/ArchitectureTable.h"

#include "MachO/MachOFormat.h"
#include "platform/process/OwnImage.h"

#include <algorithm>
#include <iterator>

namespace macho {
namespace {

constexpr NXArchInfo table[] = {
    {"i386", CPU_TYPE_I386, 3},
    {"i486", CPU_TYPE_I386, 4},
    {"i486SX", CPU_TYPE_I386, 132},
    {"i586", CPU_TYPE_I386, 5},
    {"i686", CPU_TYPE_I386, 22},
    {"pentIIm3", CPU_TYPE_I386, 54},
    {"pentIIm5", CPU_TYPE_I386, 86},
    {"pentium4", CPU_TYPE_I386, 10},
    {"x86_64", CPU_TYPE_X86_64, 3},
    {"x86_64h", CPU_TYPE_X86_64, 8},
    {"arm", CPU_TYPE_ARM, 0},
    {"armv4t", CPU_TYPE_ARM, 5},
    {"armv5", CPU_TYPE_ARM, 7},
    {"xscale", CPU_TYPE_ARM, 8},
    {"armv6", CPU_TYPE_ARM, 6},
    {"armv6m", CPU_TYPE_ARM, 14},
    {"armv7", CPU_TYPE_ARM, 9},
    {"armv7f", CPU_TYPE_ARM, 10},
    {"armv7s", CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V7S},
    {"armv7k", CPU_TYPE_ARM, 12},
    {"armv7m", CPU_TYPE_ARM, 15},
    {"armv7em", CPU_TYPE_ARM, 16},
    {"armv8", CPU_TYPE_ARM, 13},
    {"arm64", CPU_TYPE_ARM64, CPU_SUBTYPE_ARM64_ALL},
    {"arm64v8", CPU_TYPE_ARM64, 1},
    {"arm64e", CPU_TYPE_ARM64, 2},
    {"arm64_32", CPU_TYPE_ARM64_32, 0},
    {"arm64_32", CPU_TYPE_ARM64_32, 1},
    {"ppc", CPU_TYPE_POWERPC, 0},
    {"ppc601", CPU_TYPE_POWERPC, 1},
    {"ppc603", CPU_TYPE_POWERPC, 3},
    {"ppc603e", CPU_TYPE_POWERPC, 4},
    {"ppc603ev", CPU_TYPE_POWERPC, 5},
    {"ppc604", CPU_TYPE_POWERPC, 6},
    {"ppc604e", CPU_TYPE_POWERPC, 7},
    {"ppc750", CPU_TYPE_POWERPC, 9},
    {"ppc7400", CPU_TYPE_POWERPC, 10},
    {"ppc7450", CPU_TYPE_POWERPC, 11},
    {"ppc970", CPU_TYPE_POWERPC, 100},
    {"ppc64", CPU_TYPE_POWERPC64, 0},
    {"ppc970-64", CPU_TYPE_POWERPC64, 100},
};

template <class Predicate>
const NXArchInfo* findEntry(Predicate predicate) {
    const auto* const entry = std::find_if(std::begin(table), std::end(table), predicate);
    return entry == std::end(table) ? nullptr : entry;
}

} // namespace

const NXArchInfo* NXGetArchInfoFromCpuType(std::int32_t cputype, std::int32_t cpusubtype) {
    const auto processor =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(cpusubtype) & ~CPU_SUBTYPE_MASK);
    return findEntry(
        [&](const NXArchInfo& entry) { return entry.cputype == cputype && entry.cpusubtype == processor; });
}

const NXArchInfo* NXGetLocalArchInfo() {
    return findEntry(
        [name = platform::hostArchitecture()](const NXArchInfo& entry) { return entry.name == name; });
}

} // namespace macho
