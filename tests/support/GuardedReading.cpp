#include "support/GuardedReading.h"

#include "MachO/TWLMachOSlice.h"

#include <sys/mman.h>

#include <chrono>
#include <cstring>
#include <new>

namespace support {

bool readGuarded(std::string_view bytes) {
    static char* const end = [] {
        constexpr std::size_t size = 1 << 20, page = 65536;
        void* const start =
            mmap(nullptr, size + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (start == MAP_FAILED || mprotect(static_cast<char*>(start) + size, page, PROT_NONE) != 0)
            throw std::bad_alloc();
        return static_cast<char*>(start) + size;
    }();
    char* const start = end - bytes.size();
    std::memcpy(start, bytes.data(), bytes.size());
    const auto began = std::chrono::steady_clock::now();
    bool inside = true;
    const auto readSlice = [&](const macho::TWLMachOSlice* record) {
        const auto slice = TWLMachOSlice::initWithSlice(record);
        for (const void* section : {slice->ehFrameData(), slice->unwindInfoData()})
            inside = inside && (!section || (section >= start && section <= end));
        inside = inside && (!slice->uuid() || slice->uuid()->size() == 32);
    };
    macho::TWLMachOEnumerateSlicesAtAddress(start, readSlice, bytes.size());
    return inside && std::chrono::steady_clock::now() - began < std::chrono::seconds(1);
}

} // namespace support
