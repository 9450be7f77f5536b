#pragma once

#include "MachO/MachOReader.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// One architecture's image, decoded when the object is made. It shares ownership of the mapping that it was
/// read from, so it may outlive its TWLMachOBinary. Immutable: any number of threads may read it.
class TWLMachOSlice {
public:
    /// How many bytes of load commands and dylib paths one file may make its objects read. Real files hold
    /// some kilobytes; this keeps overlapping images and repeated commands from costing hours and gigabytes.
    static constexpr std::uint64_t decodingLimit = std::uint64_t{16} << 20;

    /// `slice` must lie in memory that stays as long as the object: that of `mapping`, which the object
    /// keeps, or a loaded image. Null for a null pointer.
    static std::shared_ptr<TWLMachOSlice> initWithSlice(const macho::TWLMachOSlice* slice,
                                                        std::shared_ptr<const void> mapping = nullptr);

    /// The same for one of several slices that share the limit: what has been read is taken off `allowance`,
    /// and nothing is decoded once that is used up.
    static std::shared_ptr<TWLMachOSlice> initWithSlice(const macho::TWLMachOSlice* slice,
                                                        std::shared_ptr<const void> mapping,
                                                        std::uint64_t& allowance);

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

    /// Where "__eh_frame" and "__unwind_info" of "__TEXT" start, or null; looked up each time. Valid while
    /// this object lives.
    const void* ehFrameData() const;
    const void* unwindInfoData() const;

private:
    TWLMachOSlice(const macho::TWLMachOSlice& slice, std::shared_ptr<const void> mapping,
                  std::uint64_t& allowance);
    void decode(std::uint32_t cmd, const macho::load_command* command, const macho::TWLMachOSlice& image,
                std::uint64_t& allowance);

    std::shared_ptr<const void> _mapping;
    macho::TWLMachOSlice _slice;
    std::optional<std::string> _uuidString;
    std::vector<std::string> _linkedDylibs;
    macho::TWLMachOVersion _minimumOSVersion;
    macho::TWLMachOVersion _linkedSDKVersion;
};
