#include "MachO/TWLMachOBinary.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

namespace {

void require(bool condition) {
    if (!condition)
        std::abort();
}

/// The sanitizer knows where `data` ends to the byte, which it does not for a mapped file.
void readInMemory(const std::uint8_t* data, std::size_t size) {
    const auto readSlice = [&](macho::TWLMachOSlice* record) {
        const auto slice = TWLMachOSlice::initWithSlice(record);
        for (const void* section : {slice->ehFrameData(), slice->unwindInfoData()})
            require(!section || (section >= data && section < data + size));
        require(!slice->uuid() || slice->uuid()->size() == 32);
    };
    macho::TWLMachOEnumerateSlicesAtAddress(data, readSlice, size);
}

void readFile(const std::uint8_t* data, std::size_t size) {
    static const int file = memfd_create("input", MFD_CLOEXEC);
    require(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
    const auto binary = TWLMachOBinary::MachOBinaryWithPath("/proc/self/fd/" + std::to_string(file));
    require((binary != nullptr) == (size >= 16));
    if (!binary)
        return;
    bool everySliceHasUUID = true;
    binary->enumerateUUIDs([&](const auto& uuid, const auto& architecture) {
        everySliceHasUUID = everySliceHasUUID && uuid;
        require(binary->sliceForArchitecture(architecture) != nullptr);
    });
    try {
        require(binary->instanceIdentifier().size() == 40 && everySliceHasUUID);
    } catch (const std::logic_error&) {
        require(!everySliceHasUUID);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    readInMemory(data, size);
    readFile(data, size);
    return 0;
}
