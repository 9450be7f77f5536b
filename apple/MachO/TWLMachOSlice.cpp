#include "MachO/TWLMachOSlice.h"

#include "platform/UTF8.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace {

/// The path of a dylib command when it is all there and is text. Takes what it reads off `allowance`.
std::optional<std::string> dylibPath(const macho::TWLMachOSlice& image, const macho::load_command* command,
                                     std::uint64_t& allowance) {
    constexpr std::size_t nameEnd = offsetof(macho::dylib_command, dylib.name) + sizeof(macho::lc_str);
    if (TWLMachOSliceBytesFrom(&image, command) < nameEnd)
        return std::nullopt;
    const char* const path = macho::TWLMachOGetDylibPath(command);
    const std::uint64_t readable = std::min(TWLMachOSliceBytesFrom(&image, path), allowance);
    const void* const end = readable == 0 ? nullptr : std::memchr(path, 0, readable);
    const std::uint64_t length =
        end ? static_cast<std::uint64_t>(static_cast<const char*>(end) - path) : readable;
    allowance -= length;
    return end ? platform::decodeUTF8(std::string_view(path, length)) : std::nullopt;
}

} // namespace

std::shared_ptr<TWLMachOSlice> TWLMachOSlice::initWithSlice(const macho::TWLMachOSlice* slice,
                                                            std::shared_ptr<const void> mapping) {
    std::uint64_t allowance = decodingLimit;
    return initWithSlice(slice, std::move(mapping), allowance);
}

std::shared_ptr<TWLMachOSlice> TWLMachOSlice::initWithSlice(const macho::TWLMachOSlice* slice,
                                                            std::shared_ptr<const void> mapping,
                                                            std::uint64_t& allowance) {
    if (!slice)
        return nullptr;
    return std::shared_ptr<TWLMachOSlice>(new TWLMachOSlice(*slice, std::move(mapping), allowance));
}

std::shared_ptr<TWLMachOSlice> TWLMachOSlice::runningSlice() {
    const macho::TWLMachOSlice current = macho::TWLMachOSliceGetCurrent();
    return initWithSlice(&current);
}

TWLMachOSlice::TWLMachOSlice(const macho::TWLMachOSlice& slice, std::shared_ptr<const void> mapping,
                             std::uint64_t& allowance)
    : _mapping(std::move(mapping)), _slice(slice) {
    macho::TWLMachOSlice image = slice;
    image.bytesAvailable = std::min(slice.bytesAvailable, allowance);
    const auto decodeCommand = [&](std::uint32_t cmd, std::uint32_t, const macho::load_command* command) {
        allowance -= std::min<std::uint64_t>(allowance, sizeof *command);
        decode(cmd, command, image, allowance);
    };
    TWLMachOSliceEnumerateLoadCommands(&image, decodeCommand);
    _slice.cputype = image.cputype;
    _slice.cpusubtype = image.cpusubtype;
}

void TWLMachOSlice::decode(std::uint32_t cmd, const macho::load_command* command,
                           const macho::TWLMachOSlice& image, std::uint64_t& allowance) {
    const std::uint64_t available = TWLMachOSliceBytesFrom(&image, command);
    switch (cmd) {
    case macho::LC_VERSION_MIN_MACOSX:
    case macho::LC_VERSION_MIN_IPHONEOS:
        if (available >= sizeof(macho::version_min_command)) {
            _minimumOSVersion = macho::TWLMachOGetMinimumOSVersion(command);
            _linkedSDKVersion = macho::TWLMachOGetLinkedSDKVersion(command);
        }
        break;
    case macho::LC_LOAD_DYLIB:
        if (auto path = dylibPath(image, command, allowance))
            _linkedDylibs.push_back(*std::move(path));
        break;
    case macho::LC_UUID:
        if (available >= sizeof(macho::uuid_command))
            _uuidString = macho::TWLMachONormalizeUUID(macho::TWLMachOGetUUID(command));
        break;
    default:
        break;
    }
}

std::string TWLMachOSlice::architectureName() const {
    return macho::TWLMachOSliceGetArchitectureName(&_slice);
}

const void* TWLMachOSlice::ehFrameData() const {
    const void* section = nullptr;
    TWLMachOSliceGetUnwindInformation(&_slice, &section, nullptr);
    return section;
}

const void* TWLMachOSlice::unwindInfoData() const {
    const void* section = nullptr;
    TWLMachOSliceGetUnwindInformation(&_slice, nullptr, &section);
    return section;
}
