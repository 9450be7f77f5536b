#pragma once

#include <cstdint>

/// The parts of Apple's Mach-O format that the reader needs, with their published names (<mach-o/loader.h>,
/// <mach-o/fat.h>, <mach/machine.h>). The structures are packed, because they may be unaligned in
/// a file.
namespace macho {

/// The first word of a file. The CIGAM values are byte-swapped: a little-endian host reads FAT_CIGAM, because
/// universal headers are big-endian.
inline constexpr std::uint32_t FAT_MAGIC = 0xcafebabe;
inline constexpr std::uint32_t FAT_CIGAM = 0xbebafeca;
inline constexpr std::uint32_t MH_MAGIC = 0xfeedface;
inline constexpr std::uint32_t MH_CIGAM = 0xcefaedfe;
inline constexpr std::uint32_t MH_MAGIC_64 = 0xfeedfacf;
inline constexpr std::uint32_t MH_CIGAM_64 = 0xcffaedfe;

inline constexpr std::uint32_t MH_OBJECT = 0x1;

inline constexpr std::uint32_t LC_SEGMENT = 0x1;
inline constexpr std::uint32_t LC_LOAD_DYLIB = 0xc;
inline constexpr std::uint32_t LC_SEGMENT_64 = 0x19;
inline constexpr std::uint32_t LC_UUID = 0x1b;
inline constexpr std::uint32_t LC_VERSION_MIN_MACOSX = 0x24;
inline constexpr std::uint32_t LC_VERSION_MIN_IPHONEOS = 0x25;

inline constexpr std::int32_t CPU_ARCH_ABI64 = 0x01000000;
inline constexpr std::int32_t CPU_ARCH_ABI64_32 = 0x02000000;
inline constexpr std::int32_t CPU_TYPE_I386 = 7;
inline constexpr std::int32_t CPU_TYPE_ARM = 12;
inline constexpr std::int32_t CPU_TYPE_POWERPC = 18;
inline constexpr std::int32_t CPU_TYPE_X86_64 = CPU_TYPE_I386 | CPU_ARCH_ABI64;
inline constexpr std::int32_t CPU_TYPE_ARM64 = CPU_TYPE_ARM | CPU_ARCH_ABI64;
inline constexpr std::int32_t CPU_TYPE_ARM64_32 = CPU_TYPE_ARM | CPU_ARCH_ABI64_32;
inline constexpr std::int32_t CPU_TYPE_POWERPC64 = CPU_TYPE_POWERPC | CPU_ARCH_ABI64;
inline constexpr std::int32_t CPU_SUBTYPE_ARM64_ALL = 0;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V7S = 11;
/// The bits of a subtype that stand for capabilities (pointer authentication, 64-bit libraries), not for a
/// processor.
inline constexpr std::uint32_t CPU_SUBTYPE_MASK = 0xff000000;

#pragma pack(push, 1)

/// Big-endian, like fat_arch.
struct fat_header {
    std::uint32_t magic;
    std::uint32_t nfat_arch;
};

/// Where an image is: `offset` and `size` in bytes. The image is aligned to 2^`align` bytes.
struct fat_arch {
    std::int32_t cputype;
    std::int32_t cpusubtype;
    std::uint32_t offset;
    std::uint32_t size;
    std::uint32_t align;
};

/// The start of an image. `ncmds` load commands follow, with `sizeofcmds` bytes in all.
struct mach_header {
    std::uint32_t magic;
    std::int32_t cputype;
    std::int32_t cpusubtype;
    std::uint32_t filetype;
    std::uint32_t ncmds;
    std::uint32_t sizeofcmds;
    std::uint32_t flags;
};

struct mach_header_64 {
    std::uint32_t magic;
    std::int32_t cputype;
    std::int32_t cpusubtype;
    std::uint32_t filetype;
    std::uint32_t ncmds;
    std::uint32_t sizeofcmds;
    std::uint32_t flags;
    std::uint32_t reserved;
};

/// The start of each load command. `cmdsize` includes these 8 bytes.
struct load_command {
    std::uint32_t cmd;
    std::uint32_t cmdsize;
};

struct uuid_command {
    std::uint32_t cmd;
    std::uint32_t cmdsize;
    std::uint8_t uuid[16];
};

/// A string in a load command: its offset from the start of the command.
union lc_str {
    std::uint32_t offset;
};

/// A version is X.Y.Z in 16, 8 and 8 bits, here and in version_min_command.
struct dylib {
    lc_str name;
    std::uint32_t timestamp;
    std::uint32_t current_version;
    std::uint32_t compatibility_version;
};

struct dylib_command {
    std::uint32_t cmd;
    std::uint32_t cmdsize;
    struct dylib dylib;
};

struct version_min_command {
    std::uint32_t cmd;
    std::uint32_t cmdsize;
    std::uint32_t version;
    std::uint32_t sdk;
};

/// The range of the file that is encrypted, unless `cryptid` is 0.
struct encryption_info_command {
    std::uint32_t cmd;
    std::uint32_t cmdsize;
    std::uint32_t cryptoff;
    std::uint32_t cryptsize;
    std::uint32_t cryptid;
};

/// A name of 16 characters has no terminator, here and in sections.
struct segment_command {
    std::uint32_t cmd;
    std::uint32_t cmdsize;
    char segname[16];
    std::uint32_t vmaddr;
    std::uint32_t vmsize;
    std::uint32_t fileoff;
    std::uint32_t filesize;
    std::int32_t maxprot;
    std::int32_t initprot;
    std::uint32_t nsects;
    std::uint32_t flags;
};

struct segment_command_64 {
    std::uint32_t cmd;
    std::uint32_t cmdsize;
    char segname[16];
    std::uint64_t vmaddr;
    std::uint64_t vmsize;
    std::uint64_t fileoff;
    std::uint64_t filesize;
    std::int32_t maxprot;
    std::int32_t initprot;
    std::uint32_t nsects;
    std::uint32_t flags;
};

/// `addr` and `size` are in memory. `offset` is in the file, from the start of the image.
struct section {
    char sectname[16];
    char segname[16];
    std::uint32_t addr;
    std::uint32_t size;
    std::uint32_t offset;
    std::uint32_t align;
    std::uint32_t reloff;
    std::uint32_t nreloc;
    std::uint32_t flags;
    std::uint32_t reserved1;
    std::uint32_t reserved2;
};

struct section_64 {
    char sectname[16];
    char segname[16];
    std::uint64_t addr;
    std::uint64_t size;
    std::uint32_t offset;
    std::uint32_t align;
    std::uint32_t reloff;
    std::uint32_t nreloc;
    std::uint32_t flags;
    std::uint32_t reserved1;
    std::uint32_t reserved2;
    std::uint32_t reserved3;
};

#pragma pack(pop)

} // namespace macho
