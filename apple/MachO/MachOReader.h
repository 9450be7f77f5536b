#pragma once

#include "MachO/MachOFormat.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/// A read-only reader for Mach-O files, thin or universal. TWLMachOFile maps a file; one function enumerates
/// its slices, another one the load commands of a slice, and others decode a command. A thin file has one
/// slice, and so has a file that is not a Mach-O file: that slice has the CPU type 0 and no commands.
///
/// Nothing is copied: slices, commands, UUIDs, paths and sections point into the mapping and are valid until
/// TWLMachOFileDestroy. Each slice knows how many bytes follow its start in the mapping, because files are
/// not trusted. The functions that enumerate and search read nothing beyond, and their time is limited: it is
/// at most proportional to the file's size, or that of 65,536 steps if that is more. Sizes and counts that
/// are wrong but do not lead out of the file are used as they are: tools that read this format, such as the
/// service, see the same commands in such a file. If another process truncates the file while it is mapped,
/// reading beyond the new end raises SIGBUS, as for every mapping.
///
/// Two types are named TWLMachOSlice. The record macho::TWLMachOSlice, defined here, points to an image in
/// the file. The class ::TWLMachOSlice (TWLMachOSlice.h) is the decoded object that is made from the record.
///
/// Nothing is printed or locked. Threads may call these functions at the same time if each thread uses its
/// own records. Callbacks run before the function returns.
namespace macho {

/// A mapped file, or none. Its owner must release it with TWLMachOFileDestroy.
struct TWLMachOFile {
    std::int32_t fd = -1;
    std::uint64_t mappedSize = 0;
    const void* mappedFile = nullptr;
};

/// The size of an image in memory whose end is unknown.
inline constexpr std::uint64_t unknownSize = UINT64_MAX;

/// One architecture's image. Owns nothing and may be copied.
struct TWLMachOSlice {
    /// The mach_header or mach_header_64. Null if its offset in a universal header is outside the file.
    const void* startAddress = nullptr;
    std::int32_t cputype = 0;
    /// Includes the capability bits.
    std::int32_t cpusubtype = 0;
    /// The number of bytes that may be read from `startAddress`: up to the end of the file, or
    /// `unknownSize`.
    std::uint64_t bytesAvailable = unknownSize;
};

struct TWLMachOVersion {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t bugfix = 0;

    friend bool operator==(const TWLMachOVersion&, const TWLMachOVersion&) = default;
};

/// Receives a slice. The record is overwritten for the next slice; copy it to keep it.
using SliceCallback = std::function<void(TWLMachOSlice* slice)>;
/// Receives a load command, which may be unaligned. Only its first 8 bytes are certain to be in the mapping,
/// whatever `cmdsize` says: check with TWLMachOSliceBytesFrom before reading more.
using LoadCommandCallback =
    std::function<void(std::uint32_t cmd, std::uint32_t cmdsize, const load_command* command)>;
/// Like the callback above. Returning false stops the enumeration.
using LoadCommandSearch =
    std::function<bool(std::uint32_t cmd, std::uint32_t cmdsize, const load_command* command)>;

/// Opens and maps a regular file of at least 16 bytes. Otherwise returns false and leaves nothing open. Does
/// not block on pipes and devices. A null record or path returns false.
bool TWLMachOFileInitWithPath(TWLMachOFile* file, const char* path);

/// Like TWLMachOFileInitWithPath, for the file of the running executable.
bool TWLMachOFileInitWithCurrent(TWLMachOFile* file);

/// Unmaps and closes the file and resets the record.
void TWLMachOFileDestroy(TWLMachOFile* file);

/// Calls back for each slice in the order of the file. The enumeration ends at the first entry of the
/// universal header that is not inside the file. A slice whose image is not inside the file has a null start.
/// At most 65,536 entries are read; valid files have far fewer. The 64-bit universal format is not supported:
/// such a file has one slice with the CPU type 0.
void TWLMachOFileEnumerateSlices(const TWLMachOFile* file, const SliceCallback& callback);

/// The same for a thin image or universal file in memory.
void TWLMachOEnumerateSlicesAtAddress(const void* start, const SliceCallback& callback,
                                      std::uint64_t bytesAvailable = unknownSize);

/// The last slice with this architecture name; an empty record if there is none. (The first one is found by
/// TWLMachOBinary::sliceForArchitecture.)
TWLMachOSlice TWLMachOFileSliceWithArchitectureName(const TWLMachOFile* file, const char* name);

/// The running executable's image, with the host's CPU type and subtype. On systems whose executables are
/// not Mach-O files, the slice has an address and a path, but no commands.
TWLMachOSlice TWLMachOSliceGetCurrent();

/// The path of the file from which a slice in memory was loaded. Null if it was not loaded, as for a slice
/// of a mapped file.
const char* TWLMachOSliceGetExecutablePath(const TWLMachOSlice* slice);

/// For example "arm64", "armv7s" or "x86_64"; "unknown" if the type is not in the table. Never null.
const char* TWLMachOSliceGetArchitectureName(const TWLMachOSlice* slice);

/// Stores the CPU type and subtype of the header in the record, then calls back for each load command. A
/// truncated header or one with an unknown magic has no commands. Nothing is byte-swapped, even if the magic
/// is swapped. The enumeration ends at the first command whose first 8 bytes are not inside the slice. A
/// command of size 0 repeats until the header's number of commands is reached, but at most 65,536 times or
/// once for every 8 bytes of the slice, whichever is more.
void TWLMachOSliceEnumerateLoadCommands(TWLMachOSlice* slice, const LoadCommandCallback& callback);

/// The same, until `callback` returns false.
void TWLMachOSliceSearchLoadCommands(TWLMachOSlice* slice, const LoadCommandSearch& callback);

/// The number of bytes from `address` to the end of the slice; 0 if `address` is outside.
std::uint64_t TWLMachOSliceBytesFrom(const TWLMachOSlice* slice, const void* address);

/// A record for an image in memory. The first enumeration of its commands stores its CPU type.
TWLMachOSlice TWLMachOSliceWithHeader(const void* header);

bool TWLMachOSliceIs64Bit(const TWLMachOSlice* slice);

/// The starts of the sections "__eh_frame" and "__unwind_info" of "__TEXT"; null if missing. A section is
/// not searched for if its out pointer is null.
void TWLMachOSliceGetUnwindInformation(const TWLMachOSlice* slice, const void** ehFrame,
                                       const void** unwindInfo);

/// The start of this section of "__TEXT", by its file offset. Null if there is none or if it starts outside
/// the slice. An empty section may start at the slice's end. Object files have one unnamed segment for all
/// sections, so the segment name in the section is compared. If the record, its start or the out pointer is
/// null, nothing is stored.
void TWLMachOSliceGetSectionByName(const TWLMachOSlice* slice, const char* name, const void** section);

/// The same search in one load command. Returns false and stores nothing if the command does not contain the
/// section. No pointer may be null.
bool TWLMachOSliceGetSectionInCommand(const TWLMachOSlice* slice, const load_command* command,
                                      const char* name, const void** section);

// The following functions require that the command's structure is readable: see TWLMachOSliceBytesFrom.

/// The 16 bytes of an LC_UUID command.
const std::uint8_t* TWLMachOGetUUID(const void* uuidCommand);
/// The path in a dylib command: from its offset to the first NUL.
const char* TWLMachOGetDylibPath(const void* dylibCommand);
/// Whether an encryption-info command marks the image as encrypted.
bool TWLMachOGetEncrypted(const void* encryptionInfoCommand);
TWLMachOVersion TWLMachOGetMinimumOSVersion(const void* versionMinCommand);
TWLMachOVersion TWLMachOGetLinkedSDKVersion(const void* versionMinCommand);

/// 32 lower-case hexadecimal digits for 16 bytes.
std::string TWLMachONormalizeUUID(const std::uint8_t* uuid);

/// For example "10.9.0"; null for a null pointer.
std::optional<std::string> TWLMachOFormatVersion(const TWLMachOVersion* version);

} // namespace macho
