#pragma once

#include "MachO/MachOReader.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// One architecture's image, immutable. Shares ownership of the file's mapping, so it may outlive its
/// TWLMachOBinary. Any number of threads may read it.
class TWLMachOSlice {
public:
    /// Decodes the image of `slice`, which must be in memory that outlives the object: in `mapping`, which
    /// the object keeps, or in a loaded image. Returns null for a null pointer.
    static std::shared_ptr<TWLMachOSlice> initWithSlice(const macho::TWLMachOSlice* slice,
                                                        std::shared_ptr<const void> mapping = nullptr);

    /// The same for one of several slices of a file. Decoding reduces `budget`, which starts as
    /// `decodingBudget`, by the bytes that it reads, and stops when nothing is left.
    static std::shared_ptr<TWLMachOSlice> initWithSlice(const macho::TWLMachOSlice* slice,
                                                        std::shared_ptr<const void> mapping,
                                                        std::uint64_t& budget);

    /// How many bytes may be read to decode all slices of a file of `fileSize` bytes. Valid files need fewer
    /// than their size. Without a limit, hostile files with overlapping images, repeated commands or paths
    /// outside their command could take hours and gigabytes.
    static std::uint64_t decodingBudget(std::uint64_t fileSize);

    /// The running executable. On systems whose executables are not Mach-O files it has only the host's
    /// architecture.
    static std::shared_ptr<TWLMachOSlice> runningSlice();

    /// For example "arm64", "armv7s", "x86_64" or "unknown". The types in the image's header take
    /// precedence.
    std::string architectureName() const;

    /// 32 lower-case hexadecimal digits; null if there is no LC_UUID. The last LC_UUID is used.
    const std::optional<std::string>& uuid() const { return _uuidString; }

    /// The paths of LC_LOAD_DYLIB in the order of the commands, with repetitions. Weak and re-exported
    /// dylibs are not included. A path that does not end inside the file or is not UTF-8 is left out.
    const std::vector<std::string>& linkedDylibs() const { return _linkedDylibs; }

    /// From the last LC_VERSION_MIN_MACOSX or LC_VERSION_MIN_IPHONEOS; 0, 0, 0 if there is none.
    macho::TWLMachOVersion minimumOSVersion() const { return _minimumOSVersion; }
    macho::TWLMachOVersion linkedSDKVersion() const { return _linkedSDKVersion; }

    /// The starts of "__eh_frame" and "__unwind_info" of "__TEXT", or null. Valid while this object exists.
    const void* ehFrameData() const { return _ehFrame.start; }
    const void* unwindInfoData() const { return _unwindInfo.start; }

private:
    /// The first section of a name. Found with a null start if its offset is outside the image.
    struct Section {
        bool isFound = false;
        const void* start = nullptr;
    };

    TWLMachOSlice(const macho::TWLMachOSlice& slice, std::shared_ptr<const void> mapping,
                  std::uint64_t& budget);
    /// Returns the number of bytes that it read.
    std::uint64_t decode(std::uint32_t cmd, std::uint32_t cmdsize, const macho::load_command* command);
    std::uint64_t decodeDylib(const macho::load_command* command, std::uint64_t available);
    void findSection(const macho::load_command* command, const char* name, Section& section) const;

    std::shared_ptr<const void> _mapping;
    macho::TWLMachOSlice _slice;
    std::optional<std::string> _uuidString;
    std::vector<std::string> _linkedDylibs;
    macho::TWLMachOVersion _minimumOSVersion;
    macho::TWLMachOVersion _linkedSDKVersion;
    Section _ehFrame;
    Section _unwindInfo;
};
