#pragma once

#include "MachO/MachOReader.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What the objects of one file may read while they are made. The load commands of images that do not overlap
/// cost nothing, however many they are. What no sound file needs has a limit: images that overlap, commands
/// of size 0, paths that lie outside their command. It keeps a hostile file from costing hours and gigabytes.
struct TWLDecodingBudget {
    /// Bytes of load commands that cost nothing; at the start the size of the file.
    std::uint64_t commandBytes;
    /// Bytes that may be read beyond those.
    std::uint64_t extraBytes = std::uint64_t{16} << 20;
};

/// One architecture's image, decoded when the object is made. It shares ownership of the mapping that it was
/// read from, so it may outlive its TWLMachOBinary. Immutable: any number of threads may read it.
class TWLMachOSlice {
public:
    /// `slice` must lie in memory that stays as long as the object: that of `mapping`, which the object
    /// keeps, or a loaded image. Null for a null pointer.
    static std::shared_ptr<TWLMachOSlice> initWithSlice(const macho::TWLMachOSlice* slice,
                                                        std::shared_ptr<const void> mapping = nullptr);

    /// The same for one of several slices that share a budget. Nothing more is decoded once that is used up.
    static std::shared_ptr<TWLMachOSlice> initWithSlice(const macho::TWLMachOSlice* slice,
                                                        std::shared_ptr<const void> mapping,
                                                        TWLDecodingBudget& budget);

    /// The running executable. Where executables are no Mach-O files it has the host's architecture and
    /// nothing else.
    static std::shared_ptr<TWLMachOSlice> runningSlice();

    /// Such as "arm64", "armv7s", "x86_64", or "unknown"; by the image header's own types when it has one.
    std::string architectureName() const;

    /// 32 lower-case hexadecimal digits; nothing without LC_UUID. The last such command counts.
    const std::optional<std::string>& uuid() const { return _uuidString; }

    /// The paths of LC_LOAD_DYLIB in the order of the commands, repetitions included; weak and re-exported
    /// dylibs are not among them. A path that does not end inside the file or is not UTF-8 is left out.
    const std::vector<std::string>& linkedDylibs() const { return _linkedDylibs; }

    /// From the last LC_VERSION_MIN_MACOSX or LC_VERSION_MIN_IPHONEOS; 0, 0, 0 without one.
    macho::TWLMachOVersion minimumOSVersion() const { return _minimumOSVersion; }
    macho::TWLMachOVersion linkedSDKVersion() const { return _linkedSDKVersion; }

    /// Where "__eh_frame" and "__unwind_info" of "__TEXT" start, or null. Valid while this object lives.
    const void* ehFrameData() const { return _ehFrame.start; }
    const void* unwindInfoData() const { return _unwindInfo.start; }

private:
    /// The first section of its name that a load command holds; its start may lie outside the image.
    struct Section {
        bool isFound = false;
        const void* start = nullptr;
    };

    TWLMachOSlice(const macho::TWLMachOSlice& slice, std::shared_ptr<const void> mapping,
                  TWLDecodingBudget& budget);
    /// Takes what it reads off `allowance`.
    void decode(std::uint32_t cmd, std::uint32_t cmdsize, const macho::load_command* command,
                std::uint64_t& allowance);
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
