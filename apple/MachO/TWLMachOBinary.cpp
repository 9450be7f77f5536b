#include "MachO/TWLMachOBinary.h"

#include "platform/digest/Digest.h"
#include "platform/foundation/Hexadecimal.h"
#include "platform/foundation/Path.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

std::string TWLHashNSString(std::string_view text) {
    return platform::hexadecimal(platform::sha1(text.substr(0, text.find('\0'))));
}

std::shared_ptr<TWLMachOBinary> TWLMachOBinary::initWithURL(const platform::URL& url) {
    const std::shared_ptr<TWLMachOBinary> binary(new TWLMachOBinary(url));
    return binary->open() ? binary : nullptr;
}

std::shared_ptr<TWLMachOBinary> TWLMachOBinary::MachOBinaryWithPath(std::string_view path) {
    return initWithURL(platform::URL::fileURLWithPath(path));
}

std::string TWLMachOBinary::hashNSString(std::string_view text) {
    return TWLHashNSString(text);
}

bool TWLMachOBinary::open() {
    const std::string file = path();
    if (platform::hasZeroByte(file))
        return false;
    _file.reset(new macho::TWLMachOFile, [](macho::TWLMachOFile* opened) {
        TWLMachOFileDestroy(opened);
        delete opened;
    });
    if (!TWLMachOFileInitWithPath(_file.get(), file.c_str()))
        return false;
    std::uint64_t budget = TWLMachOSlice::decodingBudget(_file->mappedSize);
    TWLMachOFileEnumerateSlices(_file.get(), [&](const macho::TWLMachOSlice* slice) {
        _slices.push_back(TWLMachOSlice::initWithSlice(slice, _file, budget));
    });
    return true;
}

const std::string& TWLMachOBinary::instanceIdentifier() const {
    if (_instanceIdentifier)
        return *_instanceIdentifier;
    // By the UUID too: the order of two slices with the same architecture name must not matter.
    auto sorted = _slices;
    const auto key = [](const auto& slice) {
        return std::pair(slice->architectureName(), slice->uuid());
    };
    std::sort(sorted.begin(), sorted.end(), [&](const auto& a, const auto& b) { return key(a) < key(b); });
    std::string uuids;
    for (const auto& slice : sorted) {
        if (!slice->uuid())
            throw std::logic_error("The " + slice->architectureName() + " slice of " + path() +
                                   " has no UUID, so the file has no identifier. Link it without -no_uuid.");
        uuids += *slice->uuid();
    }
    return _instanceIdentifier.emplace(TWLHashNSString(uuids));
}

void TWLMachOBinary::enumerateUUIDs(const TWLUUIDCallback& callback) const {
    for (const auto& slice : _slices)
        callback(slice->uuid(), slice->architectureName());
}

std::shared_ptr<TWLMachOSlice> TWLMachOBinary::sliceForArchitecture(std::string_view architectureName) const {
    const auto found = std::find_if(_slices.begin(), _slices.end(), [&](const auto& slice) {
        return slice->architectureName() == architectureName;
    });
    return found == _slices.end() ? nullptr : *found;
}
