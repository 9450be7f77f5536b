#include "support/GuardedReading.h"

#include "MachO/TWLMachOSlice.h"

#include <sys/mman.h>

#include <chrono>
#include <cstring>
#include <new>

namespace support {
namespace {

constexpr std::size_t page = 65536;

} // namespace

GuardedReading::GuardedReading(std::size_t size) : _size((size / page + 1) * page) {
    void* const memory =
        mmap(nullptr, _size + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    _start = static_cast<char*>(memory);
    if (mprotect(_start + _size, page, PROT_NONE) != 0)
        throw std::bad_alloc();
}

GuardedReading::~GuardedReading() {
    munmap(_start, _size + page);
}

bool GuardedReading::read(std::string_view bytes) {
    char* const end = _start + _size;
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
