#include "platform/process/OwnImage.h"

#include "platform/foundation/Path.h"

#include <limits.h>
#include <link.h>
#include <sys/auxv.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>
#include <utility>

namespace platform {
namespace {

/// dl_iterate_phdr(3) visits the main program first. Its image starts with the segment at file offset 0.
int storeFirstImageBase(dl_phdr_info* image, std::size_t, void* result) {
    for (int i = 0; i < image->dlpi_phnum; ++i)
        if (image->dlpi_phdr[i].p_type == PT_LOAD && image->dlpi_phdr[i].p_offset == 0)
            *static_cast<std::uintptr_t*>(result) = image->dlpi_addr + image->dlpi_phdr[i].p_vaddr;
    return 1;
}

/// The working directory at the start of the program, read before any other code can change it. Not on the
/// heap, because an allocation failure at this time could not be reported.
std::array<char, PATH_MAX> startFolder;

[[gnu::constructor(101)]] void noteStartFolder() {
    if (!getcwd(startFolder.data(), startFolder.size()))
        startFolder[0] = '\0';
}

std::string startPath() {
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    const auto* const path = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    if (!path || path[0] == '/')
        return path ? path : "";
    return pathByAppending(startFolder.data(), path);
}

/// The absolute path with which the program was started: the kernel passes it (getauxval(3)), and the loader
/// corrects it if the program was started through the loader. Other sources are wrong in some cases: argv[0]
/// can be any text, and /proc/self/exe can name the loader or a file that was deleted. Never destroyed,
/// because any thread may read the path until the process ends.
const std::string& ownPath() {
    static const auto* const path = new std::string(startPath());
    return *path;
}

/// Like dladdr(3), which does not work in a statically linked program.
struct Search {
    const std::uintptr_t address;
    /// Allocated before the search, because an exception must not pass through dl_iterate_phdr.
    const char* const mainPath;
    bool isMainProgram = true;
    const char* path = nullptr;
};

int searchImage(dl_phdr_info* image, std::size_t, void* data) {
    auto& search = *static_cast<Search*>(data);
    for (int i = 0; i < image->dlpi_phnum; ++i) {
        const auto& segment = image->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD ||
            search.address - image->dlpi_addr - segment.p_vaddr >= segment.p_memsz)
            continue;
        search.path = search.isMainProgram ? search.mainPath : image->dlpi_name;
        return 1;
    }
    search.isMainProgram = false;
    return 0;
}

} // namespace

const void* ownImageBase() {
    std::uintptr_t base = 0;
    dl_iterate_phdr(storeFirstImageBase, &base);
    return reinterpret_cast<const void*>(base); // NOLINT(performance-no-int-to-ptr)
}

const char* imagePath(const void* address) {
    Search search{reinterpret_cast<std::uintptr_t>(address), ownPath().c_str()};
    dl_iterate_phdr(searchImage, &search);
    return search.path && *search.path ? search.path : nullptr;
}

std::string_view hostArchitecture() {
    static constexpr std::pair<std::string_view, std::string_view> names[] = {
        {"x86_64", "x86_64"}, {"aarch64", "arm64"}, {"i386", "i386"},    {"i586", "i586"},
        {"i686", "i686"},     {"armv6l", "armv6"},  {"armv7l", "armv7"}, {"armv8l", "armv8"},
        {"ppc", "ppc"},       {"ppc64", "ppc64"},   {"ppc64le", "ppc64"}};
    utsname host;
    if (uname(&host) == 0)
        for (const auto& [machine, architecture] : names)
            if (machine == host.machine)
                return architecture;
    return {};
}

} // namespace platform
