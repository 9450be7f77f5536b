#include "platform/files/Buffer.h"

#include <sys/mman.h>

#include <cstdlib>
#include <new>

namespace platform {

// The size of a large page on x86-64, and on arm64 with pages of 4 KiB.
constexpr std::size_t largePage = std::size_t(2) << 20;

std::shared_ptr<char> allocateBuffer(std::size_t size) {
    if (size < 2 * largePage)
        return {new char[size], std::default_delete<char[]>()};
    const std::size_t whole = (size + largePage - 1) / largePage * largePage;
    void* const memory = whole < size ? nullptr : std::aligned_alloc(largePage, whole);
    if (!memory)
        throw std::bad_alloc();
    // An error is ignored: normal pages work too, only slower.
    static_cast<void>(madvise(memory, whole, MADV_HUGEPAGE));
    return {static_cast<char*>(memory), &std::free};
}

} // namespace platform
