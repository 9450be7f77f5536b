#include "MachO/TWLMachOSlice.h"

#include "platform/foundation/UTF8.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

std::shared_ptr<TWLMachOSlice> TWLMachOSlice::initWithSlice(const macho::TWLMachOSlice* slice,
                                                            std::shared_ptr<const void> mapping) {
    std::uint64_t budget = decodingBudget(slice ? slice->bytesAvailable : 0);
    return initWithSlice(slice, std::move(mapping), budget);
}

std::shared_ptr<TWLMachOSlice> TWLMachOSlice::initWithSlice(const macho::TWLMachOSlice* slice,
                                                            std::shared_ptr<const void> mapping,
                                                            std::uint64_t& budget) {
    if (!slice)
        return nullptr;
    return std::shared_ptr<TWLMachOSlice>(new TWLMachOSlice(*slice, std::move(mapping), budget));
}

std::shared_ptr<TWLMachOSlice> TWLMachOSlice::runningSlice() {
    const macho::TWLMachOSlice current = macho::TWLMachOSliceGetCurrent();
    return initWithSlice(&current);
}

TWLMachOSlice::TWLMachOSlice(const macho::TWLMachOSlice& slice, std::shared_ptr<const void> mapping,
                             std::uint64_t& budget)
    : _mapping(std::move(mapping)), _slice(slice) {
    const auto decodeCommand = [&](auto cmd, auto cmdsize, const macho::load_command* command) {
        if (budget == 0)
            return false;
        budget -= std::min(budget, decode(cmd, cmdsize, command));
        return true;
    };
    TWLMachOSliceSearchLoadCommands(&_slice, decodeCommand);
}

std::uint64_t TWLMachOSlice::decodingBudget(std::uint64_t fileSize) {
    // For files that exceed the limit a little, such as a small file that repeats a command.
    constexpr std::uint64_t reserve = std::uint64_t{16} << 20;
    return fileSize + std::min(reserve, macho::unknownSize - fileSize);
}

std::uint64_t TWLMachOSlice::decode(std::uint32_t cmd, std::uint32_t cmdsize,
                                    const macho::load_command* command) {
    const std::uint64_t available = TWLMachOSliceBytesFrom(&_slice, command);
    switch (cmd) {
    case macho::LC_VERSION_MIN_MACOSX:
    case macho::LC_VERSION_MIN_IPHONEOS:
        if (available >= sizeof(macho::version_min_command)) {
            _minimumOSVersion = macho::TWLMachOGetMinimumOSVersion(command);
            _linkedSDKVersion = macho::TWLMachOGetLinkedSDKVersion(command);
        }
        return sizeof(macho::version_min_command);
    case macho::LC_LOAD_DYLIB:
        return decodeDylib(command, available);
    case macho::LC_UUID:
        if (available >= sizeof(macho::uuid_command))
            _uuidString = macho::TWLMachONormalizeUUID(macho::TWLMachOGetUUID(command));
        return sizeof(macho::uuid_command);
    case macho::LC_SEGMENT:
    case macho::LC_SEGMENT_64:
        findSection(command, "__eh_frame", _ehFrame);
        findSection(command, "__unwind_info", _unwindInfo);
        return std::clamp<std::uint64_t>(cmdsize, sizeof *command, available);
    default:
        return sizeof *command;
    }
}

/// Adds the path if it ends inside the image and is UTF-8.
std::uint64_t TWLMachOSlice::decodeDylib(const macho::load_command* command, std::uint64_t available) {
    constexpr std::size_t nameEnd = offsetof(macho::dylib_command, dylib.name) + sizeof(macho::lc_str);
    if (available < nameEnd)
        return sizeof *command;
    const char* const path = macho::TWLMachOGetDylibPath(command);
    const std::uint64_t readable = TWLMachOSliceBytesFrom(&_slice, path);
    const auto* const end =
        readable == 0 ? nullptr : static_cast<const char*>(std::memchr(path, 0, readable));
    if (!end)
        return sizeof(macho::dylib_command) + readable;
    if (auto text = platform::decodeUTF8({path, end}))
        _linkedDylibs.push_back(*std::move(text));
    return sizeof(macho::dylib_command) + static_cast<std::uint64_t>(end - path);
}

void TWLMachOSlice::findSection(const macho::load_command* command, const char* name,
                                Section& section) const {
    if (!section.isFound)
        section.isFound = TWLMachOSliceGetSectionInCommand(&_slice, command, name, &section.start);
}

std::string TWLMachOSlice::architectureName() const {
    return macho::TWLMachOSliceGetArchitectureName(&_slice);
}
