#pragma once

#include "MachO/MachOFormat.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/// A read-only reader of Mach-O files, thin or universal: plain records and functions that map a file, walk
/// its slices and their load commands, and decode a few of those. A thin file counts as one slice; so does a
/// file that is no Mach-O file at all (CPU type 0, no commands).
///
/// Nothing is copied: slices, commands, UUIDs, paths and sections point into the mapping and are good until
/// TWLMachOFileDestroy. Files are not trusted: the functions that walk and search read nothing outside the
/// mapping and take time that grows with the file's size at most, whatever its bytes say. What they cannot
/// prevent is another process that cuts the file short while it is mapped: reading a page that is gone then
/// raises SIGBUS, as with every mapping.
///
/// Nothing is printed, locked or shared. Any thread may work on records of its own; callbacks run before the
/// function that takes them returns.
namespace macho {

/// An opened, mapped file, or nothing yet. Owned by whoever holds it, released by TWLMachOFileDestroy.
struct TWLMachOFile {
    std::int32_t fd = -1;
    std::uint64_t mappedSize = 0;
    const void* mappedFile = nullptr;
};

/// For an image in memory, of which no one says where it ends.
inline constexpr std::uint64_t unknownSize = UINT64_MAX;

/// One architecture's image. It owns nothing and may be copied freely.
struct TWLMachOSlice {
    /// The mach_header or mach_header_64; null when a universal file places the image outside itself.
    const void* startAddress = nullptr;
    std::int32_t cputype = 0;
    /// With its capability bits.
    std::int32_t cpusubtype = 0;
    /// How many bytes may be read from `startAddress` on: up to the end of the file, or `unknownSize`.
    std::uint64_t bytesAvailable = unknownSize;
};

struct TWLMachOVersion {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t bugfix = 0;

    friend bool operator==(const TWLMachOVersion&, const TWLMachOVersion&) = default;
};

/// The record is overwritten for the next slice; copy what is to be kept.
using SliceCallback = std::function<void(TWLMachOSlice* slice)>;
/// The command may stand at any address; its structure may be larger than what `cmdsize` or the mapping holds
/// (TWLMachOSliceBytesFrom).
using LoadCommandCallback =
    std::function<void(std::uint32_t cmd, std::uint32_t cmdsize, const load_command* command)>;
/// The same; false ends the walk.
using LoadCommandSearch =
    std::function<bool(std::uint32_t cmd, std::uint32_t cmdsize, const load_command* command)>;

/// Opens and maps a regular file of at least 16 bytes. False, with nothing left open, for anything else;
/// never waits for a pipe or a device. A null record or path is false and touches nothing.
bool TWLMachOFileInitWithPath(TWLMachOFile* file, const char* path);

/// The same for the running executable's file.
bool TWLMachOFileInitWithCurrent(TWLMachOFile* file);

/// Unmaps and closes what is mapped and open; the record is then as new.
void TWLMachOFileDestroy(TWLMachOFile* file);

/// Calls back for each slice in file order. An entry of a universal header that lies outside the file ends
/// the enumeration; one whose image lies outside is called back with a null start. Only the first 65,536
/// entries are read, whatever the header's count says: some forty architectures have names.
/// The 64-bit universal format is not known: such a file is one slice of type 0.
void TWLMachOFileEnumerateSlices(const TWLMachOFile* file, const SliceCallback& callback);

/// The same for a thin image or universal file in memory.
void TWLMachOEnumerateSlicesAtAddress(const void* start, const SliceCallback& callback,
                                      std::uint64_t bytesAvailable = unknownSize);

/// The last slice with that architecture name, or an empty record.
TWLMachOSlice TWLMachOFileSliceWithArchitectureName(const TWLMachOFile* file, const char* name);

/// The running executable's image, with the host's CPU type and subtype. On systems whose executables are no
/// Mach-O files it has an address and a path, but no commands.
TWLMachOSlice TWLMachOSliceGetCurrent();

/// The path of the file that a slice in memory was loaded from, or null. A slice of a mapped file is not
/// loaded.
const char* TWLMachOSliceGetExecutablePath(const TWLMachOSlice* slice);

/// Such as "arm64", "armv7s" or "x86_64"; "unknown" when no one has named the type. Never null.
const char* TWLMachOSliceGetArchitectureName(const TWLMachOSlice* slice);

/// Stores the header's own CPU type and subtype in the record, then calls back for each load command. A
/// header that is cut short or of another magic has none. Nothing is byte-swapped, not even behind a swapped
/// magic. A command that does not lie inside the slice ends the walk; a command of size 0 is passed again, at
/// most once for every 8 bytes of the slice.
void TWLMachOSliceEnumerateLoadCommands(TWLMachOSlice* slice, const LoadCommandCallback& callback);

/// The same until `callback` returns false.
void TWLMachOSliceSearchLoadCommands(TWLMachOSlice* slice, const LoadCommandSearch& callback);

/// How many bytes of the slice may be read from `address` on; 0 when it lies outside.
std::uint64_t TWLMachOSliceBytesFrom(const TWLMachOSlice* slice, const void* address);

/// A record for an image in memory; its types are those that the first walk of its commands stores.
TWLMachOSlice TWLMachOSliceWithHeader(const void* header);

bool TWLMachOSliceIs64Bit(const TWLMachOSlice* slice);

/// The starts of the sections "__eh_frame" and "__unwind_info" of "__TEXT", each null when there is none; a
/// null out pointer skips the search.
void TWLMachOSliceGetUnwindInformation(const TWLMachOSlice* slice, const void** ehFrame,
                                       const void** unwindInfo);

/// The start of the section of that name in "__TEXT", by its file offset; null when there is none or it
/// starts outside the slice. An empty section may start at the slice's end. In object files, which keep all
/// sections in one unnamed segment, the section's own segment name counts. Nothing is stored when the record,
/// its start or the out pointer is null.
void TWLMachOSliceGetSectionByName(const TWLMachOSlice* slice, const char* name, const void** section);

/// The same search in one load command of the slice; false, with nothing stored, when that does not hold the
/// section. No pointer may be null.
bool TWLMachOSliceGetSectionInCommand(const TWLMachOSlice* slice, const load_command* command,
                                      const char* name, const void** section);

// The decoders below trust that the command's structure is there to read: see TWLMachOSliceBytesFrom.

/// The 16 bytes of an LC_UUID command.
const std::uint8_t* TWLMachOGetUUID(const void* uuidCommand);
/// The path of a dylib command: where the command says that it is, up to the first NUL.
const char* TWLMachOGetDylibPath(const void* dylibCommand);
/// Whether an encryption-info command says that the image is encrypted.
bool TWLMachOGetEncrypted(const void* encryptionInfoCommand);
TWLMachOVersion TWLMachOGetMinimumOSVersion(const void* versionMinCommand);
TWLMachOVersion TWLMachOGetLinkedSDKVersion(const void* versionMinCommand);

/// 32 lower-case hexadecimal digits for 16 bytes.
std::string TWLMachONormalizeUUID(const std::uint8_t* uuid);

/// "10.9.0", or nothing for a null pointer.
std::optional<std::string> TWLMachOFormatVersion(const TWLMachOVersion* version);

} // namespace macho
