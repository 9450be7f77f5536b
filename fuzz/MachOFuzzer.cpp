#include "MachO/TWLMachOBinary.h"
#include "support/MachOImage.h"

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
    require(size > 1 << 20 || support::readGuarded({reinterpret_cast<const char*>(data), size}));
    readFile(data, size);
    return 0;
}
