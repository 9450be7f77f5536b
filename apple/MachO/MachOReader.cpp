#include "MachO/MachOReader.h"

#include "MachO/ArchitectureTable.h"
#include "platform/files/FileCalls.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/Hexadecimal.h"
#include "platform/process/OwnImage.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace macho {
namespace {

// Thin images are read in the host's byte order. Universal headers are byte-swapped.
static_assert(std::endian::native == std::endian::little);

constexpr std::uint64_t smallestFile = 16;
constexpr std::uint32_t mostArchitectures = 65536;
constexpr std::uint64_t mostRepetitions = 65536;

template <class T>
T load(const void* address) {
    T value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

const void* advance(const void* address, std::uint64_t bytes) {
    return static_cast<const char*>(address) + bytes;
}

template <class Integer>
Integer byteSwapped(Integer value) {
    return static_cast<Integer>(__builtin_bswap32(static_cast<std::uint32_t>(value)));
}

bool isMachMagic(std::uint32_t word) {
    return word == MH_MAGIC || word == MH_CIGAM || word == MH_MAGIC_64 || word == MH_CIGAM_64;
}

/// The size of the header according to its magic; 0 if the header is not complete.
std::uint64_t headerSize(const void* start, std::uint64_t available) {
    const auto magic = available < sizeof(std::uint32_t) ? 0 : load<std::uint32_t>(start);
    if (!isMachMagic(magic))
        return 0;
    const bool is64Bit = magic == MH_MAGIC_64 || magic == MH_CIGAM_64;
    const std::uint64_t size = is64Bit ? sizeof(mach_header_64) : sizeof(mach_header);
    return size <= available ? size : 0;
}

void enumerateUniversal(const void* start, const SliceCallback& callback, std::uint64_t available) {
    const auto count = byteSwapped(load<fat_header>(start).nfat_arch);
    TWLMachOSlice slice;
    std::uint64_t position = sizeof(fat_header);
    for (std::uint32_t i = 0; i < std::min(count, mostArchitectures); ++i) {
        // The subtraction cannot wrap around: `position` is at most `available`, here and in
        // TWLMachOSliceSearchLoadCommands.
        if (available - position < sizeof(fat_arch))
            return;
        const auto entry = load<fat_arch>(advance(start, position));
        position += sizeof(fat_arch);
        const std::uint32_t offset = byteSwapped(entry.offset);
        // The entry's size is not used: it may be wrong, and the end of the file limits all reads anyway.
        const bool inside = offset < available;
        slice.startAddress = inside ? advance(start, offset) : nullptr;
        slice.bytesAvailable = inside ? available - offset : 0;
        slice.cputype = byteSwapped(entry.cputype);
        slice.cpusubtype = byteSwapped(entry.cpusubtype);
        callback(&slice);
    }
}

/// Compares names of sections and segments: up to the first NUL, at most 16 characters.
bool sameName(const char (&name)[16], const char* wanted) {
    return std::strncmp(name, wanted, sizeof name) == 0;
}

/// What differs between the segments of 32-bit and 64-bit images.
struct Bits32 {
    using Segment = segment_command;
    using Section = section;
    static constexpr std::uint32_t segmentType = LC_SEGMENT;
};
struct Bits64 {
    using Segment = segment_command_64;
    using Section = section_64;
    static constexpr std::uint32_t segmentType = LC_SEGMENT_64;
};

/// The file offset of a section of "__TEXT", if the command is a segment that contains it.
template <class Bits>
std::optional<std::uint32_t> sectionOffset(const TWLMachOSlice* slice, const load_command* command,
                                           const char* name) {
    using Segment = typename Bits::Segment;
    using Section = typename Bits::Section;
    const auto [type, cmdsize] = load<load_command>(command);
    // The command may be larger than the rest of the slice, and contain fewer sections than it says.
    const auto size = std::min<std::uint64_t>(cmdsize, TWLMachOSliceBytesFrom(slice, command));
    if (type != Bits::segmentType || size < sizeof(Segment))
        return std::nullopt;
    const auto segment = load<Segment>(command);
    const bool isObjectFile = load<mach_header>(slice->startAddress).filetype == MH_OBJECT;
    if (!isObjectFile && !sameName(segment.segname, "__TEXT"))
        return std::nullopt;
    const auto count = std::min<std::uint64_t>(segment.nsects, (size - sizeof(Segment)) / sizeof(Section));
    for (std::uint64_t i = 0; i < count; ++i) {
        const auto section = load<Section>(advance(command, sizeof(Segment) + i * sizeof(Section)));
        if (sameName(section.sectname, name) && sameName(section.segname, "__TEXT"))
            return section.offset;
    }
    return std::nullopt;
}

TWLMachOVersion decodeVersion(std::uint32_t packed) {
    return {packed >> 16, packed >> 8 & 0xff, packed & 0xff};
}

} // namespace

bool TWLMachOFileInitWithPath(TWLMachOFile* file, const char* path) {
    if (!file || !path)
        return false;
    *file = TWLMachOFile();
    struct stat status;
    platform::FileDescriptor opened = platform::openToRead(AT_FDCWD, path, status);
    if (!opened || !S_ISREG(status.st_mode) || static_cast<std::uint64_t>(status.st_size) < smallestFile)
        return false;
    const auto size = static_cast<std::size_t>(status.st_size);
    void* const mapping = mmap(nullptr, size, PROT_READ, MAP_SHARED, opened.get(), 0);
    if (mapping == nullptr || mapping == MAP_FAILED)
        return false;
    *file = {.fd = opened.release(), .mappedSize = size, .mappedFile = mapping};
    return true;
}

bool TWLMachOFileInitWithCurrent(TWLMachOFile* file) {
    const TWLMachOSlice current = TWLMachOSliceGetCurrent();
    return TWLMachOFileInitWithPath(file, TWLMachOSliceGetExecutablePath(&current));
}

void TWLMachOFileDestroy(TWLMachOFile* file) {
    if (!file)
        return;
    if (file->mappedFile && file->mappedSize != 0)
        munmap(const_cast<void*>(file->mappedFile), static_cast<std::size_t>(file->mappedSize));
    if (file->fd >= 0)
        ::close(file->fd);
    *file = TWLMachOFile();
}

void TWLMachOFileEnumerateSlices(const TWLMachOFile* file, const SliceCallback& callback) {
    if (file)
        TWLMachOEnumerateSlicesAtAddress(file->mappedFile, callback, file->mappedSize);
}

void TWLMachOEnumerateSlicesAtAddress(const void* start, const SliceCallback& callback,
                                      std::uint64_t bytesAvailable) {
    if (!start || !callback || bytesAvailable < smallestFile)
        return;
    const auto magic = load<std::uint32_t>(start);
    if (magic == FAT_MAGIC || magic == FAT_CIGAM)
        return enumerateUniversal(start, callback, bytesAvailable);
    TWLMachOSlice slice{.startAddress = start, .bytesAvailable = bytesAvailable};
    if (isMachMagic(magic)) {
        slice.cputype = load<std::int32_t>(advance(start, offsetof(mach_header, cputype)));
        slice.cpusubtype = load<std::int32_t>(advance(start, offsetof(mach_header, cpusubtype)));
    }
    callback(&slice);
}

TWLMachOSlice TWLMachOFileSliceWithArchitectureName(const TWLMachOFile* file, const char* name) {
    TWLMachOSlice found;
    TWLMachOFileEnumerateSlices(file, [&](const TWLMachOSlice* slice) {
        if (name && std::strcmp(TWLMachOSliceGetArchitectureName(slice), name) == 0)
            found = *slice;
    });
    return found;
}

TWLMachOSlice TWLMachOSliceGetCurrent() {
    TWLMachOSlice slice = TWLMachOSliceWithHeader(platform::ownImageBase());
    if (const NXArchInfo* host = NXGetLocalArchInfo()) {
        slice.cputype = host->cputype;
        slice.cpusubtype = host->cpusubtype;
    }
    return slice;
}

const char* TWLMachOSliceGetExecutablePath(const TWLMachOSlice* slice) {
    return slice && slice->startAddress ? platform::imagePath(slice->startAddress) : nullptr;
}

const char* TWLMachOSliceGetArchitectureName(const TWLMachOSlice* slice) {
    const NXArchInfo* const entry =
        slice ? NXGetArchInfoFromCpuType(slice->cputype, slice->cpusubtype) : nullptr;
    return entry ? entry->name : "unknown";
}

void TWLMachOSliceEnumerateLoadCommands(TWLMachOSlice* slice, const LoadCommandCallback& callback) {
    if (!callback)
        return;
    TWLMachOSliceSearchLoadCommands(slice, [&](auto cmd, auto cmdsize, const load_command* command) {
        callback(cmd, cmdsize, command);
        return true;
    });
}

void TWLMachOSliceSearchLoadCommands(TWLMachOSlice* slice, const LoadCommandSearch& callback) {
    if (!callback || !slice || !slice->startAddress)
        return;
    const void* const start = slice->startAddress;
    const std::uint64_t available = TWLMachOSliceBytesFrom(slice, start);
    std::uint64_t position = headerSize(start, available);
    if (position == 0)
        return;
    const auto header = load<mach_header>(start);
    slice->cputype = header.cputype;
    slice->cpusubtype = header.cpusubtype;
    // Only commands of size 0, which do not advance `position`, can exceed this limit.
    const std::uint64_t count =
        std::min<std::uint64_t>(header.ncmds, std::max(available / sizeof(load_command), mostRepetitions));
    for (std::uint64_t i = 0; i < count && available - position >= sizeof(load_command); ++i) {
        const void* const address = advance(start, position);
        const auto command = load<load_command>(address);
        if (!callback(command.cmd, command.cmdsize, static_cast<const load_command*>(address)) ||
            command.cmdsize > available - position)
            return;
        position += command.cmdsize;
    }
}

std::uint64_t TWLMachOSliceBytesFrom(const TWLMachOSlice* slice, const void* address) {
    const auto start = reinterpret_cast<std::uintptr_t>(slice->startAddress);
    const auto position = reinterpret_cast<std::uintptr_t>(address);
    // `start` plus an unknown size must not overflow.
    const std::uint64_t available = std::min<std::uint64_t>(slice->bytesAvailable, UINTPTR_MAX - start);
    return position < start || position - start > available ? 0 : available - (position - start);
}

TWLMachOSlice TWLMachOSliceWithHeader(const void* header) {
    return {.startAddress = header};
}

bool TWLMachOSliceIs64Bit(const TWLMachOSlice* slice) {
    return slice && (slice->cputype & CPU_ARCH_ABI64) != 0;
}

void TWLMachOSliceGetUnwindInformation(const TWLMachOSlice* slice, const void** ehFrame,
                                       const void** unwindInfo) {
    TWLMachOSliceGetSectionByName(slice, "__eh_frame", ehFrame);
    TWLMachOSliceGetSectionByName(slice, "__unwind_info", unwindInfo);
}

void TWLMachOSliceGetSectionByName(const TWLMachOSlice* slice, const char* name, const void** section) {
    if (!slice || !slice->startAddress || !section)
        return;
    *section = nullptr;
    if (!name)
        return;
    TWLMachOSlice walked = *slice;
    TWLMachOSliceSearchLoadCommands(&walked, [&](auto, auto, const load_command* command) {
        return !TWLMachOSliceGetSectionInCommand(slice, command, name, section);
    });
}

bool TWLMachOSliceGetSectionInCommand(const TWLMachOSlice* slice, const load_command* command,
                                      const char* name, const void** section) {
    const auto offset = TWLMachOSliceIs64Bit(slice) ? sectionOffset<Bits64>(slice, command, name)
                                                    : sectionOffset<Bits32>(slice, command, name);
    if (offset)
        *section = *offset <= slice->bytesAvailable ? advance(slice->startAddress, *offset) : nullptr;
    return offset.has_value();
}

const std::uint8_t* TWLMachOGetUUID(const void* uuidCommand) {
    return static_cast<const std::uint8_t*>(uuidCommand) + offsetof(uuid_command, uuid);
}

const char* TWLMachOGetDylibPath(const void* dylibCommand) {
    const auto* const command = static_cast<const char*>(dylibCommand);
    return command + load<lc_str>(command + offsetof(dylib_command, dylib)).offset;
}

bool TWLMachOGetEncrypted(const void* encryptionInfoCommand) {
    return load<encryption_info_command>(encryptionInfoCommand).cryptid != 0;
}

TWLMachOVersion TWLMachOGetMinimumOSVersion(const void* versionMinCommand) {
    return decodeVersion(load<version_min_command>(versionMinCommand).version);
}

TWLMachOVersion TWLMachOGetLinkedSDKVersion(const void* versionMinCommand) {
    return decodeVersion(load<version_min_command>(versionMinCommand).sdk);
}

std::string TWLMachONormalizeUUID(const std::uint8_t* uuid) {
    return platform::hexadecimal({reinterpret_cast<const char*>(uuid), sizeof(uuid_command::uuid)});
}

std::optional<std::string> TWLMachOFormatVersion(const TWLMachOVersion* version) {
    if (!version)
        return std::nullopt;
    const auto asInteger = [](std::uint32_t value) {
        return static_cast<std::int32_t>(value);
    };
    return platform::format("%d.%d.%d", asInteger(version->major), asInteger(version->minor),
                            asInteger(version->bugfix));
}

} // namespace macho
