#include "MachO/TWLMachOSlice.h"

#include "platform/foundation/UTF8.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace {

void take(std::uint64_t& allowance, std::uint64_t bytes) {
    allowance -= std::min(allowance, bytes);
}

/// The path of a dylib command, if it is complete and UTF-8. Reduces `allowance` by the bytes that it reads.
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
    take(allowance, length);
    return end ? platform::decodeUTF8(std::string_view(path, length)) : std::nullopt;
}

} // namespace

std::shared_ptr<TWLMachOSlice> TWLMachOSlice::initWithSlice(const macho::TWLMachOSlice* slice,
                                                            std::shared_ptr<const void> mapping) {
    TWLDecodingBudget budget{.commandBytes = slice ? slice->bytesAvailable : 0};
    return initWithSlice(slice, std::move(mapping), budget);
}

std::shared_ptr<TWLMachOSlice> TWLMachOSlice::initWithSlice(const macho::TWLMachOSlice* slice,
                                                            std::shared_ptr<const void> mapping,
                                                            TWLDecodingBudget& budget) {
    if (!slice)
        return nullptr;
    return std::shared_ptr<TWLMachOSlice>(new TWLMachOSlice(*slice, std::move(mapping), budget));
}

std::shared_ptr<TWLMachOSlice> TWLMachOSlice::runningSlice() {
    const macho::TWLMachOSlice current = macho::TWLMachOSliceGetCurrent();
    return initWithSlice(&current);
}

TWLMachOSlice::TWLMachOSlice(const macho::TWLMachOSlice& slice, std::shared_ptr<const void> mapping,
                             TWLDecodingBudget& budget)
    : _mapping(std::move(mapping)), _slice(slice) {
    const auto decodeCommand = [&](std::uint32_t cmd, std::uint32_t cmdsize,
                                   const macho::load_command* command) {
        const std::uint64_t free = std::min<std::uint64_t>(cmdsize, budget.commandBytes);
        budget.commandBytes -= free;
        // Unused free bytes are lost; reading more than the free bytes reduces the extra bytes.
        std::uint64_t allowance = free + budget.extraBytes;
        if (allowance < sizeof *command)
            return false;
        decode(cmd, cmdsize, command, allowance);
        budget.extraBytes = std::min(budget.extraBytes, allowance);
        return true;
    };
    TWLMachOSliceSearchLoadCommands(&_slice, decodeCommand);
}

void TWLMachOSlice::decode(std::uint32_t cmd, std::uint32_t cmdsize, const macho::load_command* command,
                           std::uint64_t& allowance) {
    const std::uint64_t available = TWLMachOSliceBytesFrom(&_slice, command);
    switch (cmd) {
    case macho::LC_VERSION_MIN_MACOSX:
    case macho::LC_VERSION_MIN_IPHONEOS:
        take(allowance, sizeof(macho::version_min_command));
        if (available >= sizeof(macho::version_min_command)) {
            _minimumOSVersion = macho::TWLMachOGetMinimumOSVersion(command);
            _linkedSDKVersion = macho::TWLMachOGetLinkedSDKVersion(command);
        }
        break;
    case macho::LC_LOAD_DYLIB:
        take(allowance, sizeof(macho::dylib_command));
        if (auto path = dylibPath(_slice, command, allowance))
            _linkedDylibs.push_back(*std::move(path));
        break;
    case macho::LC_UUID:
        take(allowance, sizeof(macho::uuid_command));
        if (available >= sizeof(macho::uuid_command))
            _uuidString = macho::TWLMachONormalizeUUID(macho::TWLMachOGetUUID(command));
        break;
    case macho::LC_SEGMENT:
    case macho::LC_SEGMENT_64:
        take(allowance, std::max<std::uint64_t>(cmdsize, sizeof *command));
        findSection(command, "__eh_frame", _ehFrame);
        findSection(command, "__unwind_info", _unwindInfo);
        break;
    default:
        take(allowance, sizeof *command);
        break;
    }
}

void TWLMachOSlice::findSection(const macho::load_command* command, const char* name,
                                Section& section) const {
    if (!section.isFound)
        section.isFound = TWLMachOSliceGetSectionInCommand(&_slice, command, name, &section.start);
}

std::string TWLMachOSlice::architectureName() const {
    return macho::TWLMachOSliceGetArchitectureName(&_slice);
}
