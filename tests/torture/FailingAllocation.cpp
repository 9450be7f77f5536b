#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// A library to preload: lets one allocation of the program fail. Its environment variables are taken away
// before main, so that child processes do not inherit them.
//
//   ORVANE_FAILING_ALLOCATION   which allocation fails, from 1; 0 lets none fail
//   ORVANE_ALLOCATION_COUNT     a file that gets the number of allocations when the program ends

// The C library's own implementations, exported under these names.
extern "C" void* libraryMalloc(std::size_t size) __asm__("__libc_malloc");
extern "C" void* libraryCalloc(std::size_t count, std::size_t size) __asm__("__libc_calloc");
extern "C" void* libraryRealloc(void* memory, std::size_t size) __asm__("__libc_realloc");

namespace {

std::atomic<bool> isCounting = false;
std::atomic<unsigned long> count = 0;
unsigned long failing = 0;
int report = -1;

/// OpenSSL 3.0 crashes if there is no memory for a lock during its set-up.
bool isSpared(const void* caller) {
    Dl_info library = {};
    return dladdr(caller, &library) != 0 && std::strstr(library.dli_fname, "libcrypto");
}

bool mustFail(const void* caller) {
    if (!isCounting || ++count != failing || isSpared(caller))
        return false;
    errno = ENOMEM;
    return true;
}

__attribute__((constructor)) void start() {
    const char* const number = std::getenv("ORVANE_FAILING_ALLOCATION");
    const char* const path = std::getenv("ORVANE_ALLOCATION_COUNT");
    failing = number ? std::strtoul(number, nullptr, 10) : 0;
    if (path)
        report = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    for (const char* name : {"LD_PRELOAD", "ORVANE_FAILING_ALLOCATION", "ORVANE_ALLOCATION_COUNT"})
        unsetenv(name);
    isCounting = true;
}

__attribute__((destructor)) void finish() {
    isCounting = false;
    if (report >= 0)
        dprintf(report, "%lu\n", count.load());
}

} // namespace

extern "C" void* malloc(std::size_t size) {
    return mustFail(__builtin_return_address(0)) ? nullptr : libraryMalloc(size);
}

extern "C" void* calloc(std::size_t number, std::size_t size) {
    return mustFail(__builtin_return_address(0)) ? nullptr : libraryCalloc(number, size);
}

extern "C" void* realloc(void* memory, std::size_t size) {
    return mustFail(__builtin_return_address(0)) ? nullptr : libraryRealloc(memory, size);
}
