#include "platform/OwnImage.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/utsname.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace platform {
namespace {

/// dl_iterate_phdr(3) visits the main program first; its image starts with the segment at file offset 0.
int storeFirstImageBase(dl_phdr_info* image, std::size_t, void* result) {
    for (int i = 0; i < image->dlpi_phnum; ++i)
        if (image->dlpi_phdr[i].p_type == PT_LOAD && image->dlpi_phdr[i].p_offset == 0)
            *static_cast<std::uintptr_t*>(result) = image->dlpi_addr + image->dlpi_phdr[i].p_vaddr;
    return 1;
}

/// dladdr(3) only knows the main program's argv[0], which may be relative to a folder left since.
const std::string& ownPath() {
    static const std::string path = [] {
        std::error_code failure;
        return std::filesystem::read_symlink("/proc/self/exe", failure).string();
    }();
    return path;
}

} // namespace

const void* ownImageBase() {
    std::uintptr_t base = 0;
    dl_iterate_phdr(storeFirstImageBase, &base);
    return reinterpret_cast<const void*>(base); // NOLINT(performance-no-int-to-ptr)
}

const char* imagePath(const void* address) {
    Dl_info image = {};
    if (dladdr(address, &image) == 0)
        return nullptr;
    if (image.dli_fbase != ownImageBase())
        return image.dli_fname;
    return ownPath().empty() ? nullptr : ownPath().c_str();
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
