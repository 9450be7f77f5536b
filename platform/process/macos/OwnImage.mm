#include "platform/process/OwnImage.h"

#include <dlfcn.h>
#include <mach-o/arch.h>
#include <mach-o/ldsyms.h>

namespace platform {
namespace {

/// The result of dladdr(3) for `address`. All members are null if it is in no image.
Dl_info imageAround(const void* address) {
    Dl_info image = {};
    return address && dladdr(address, &image) != 0 ? image : Dl_info{};
}

} // namespace

const void* ownImageBase() {
    return imageAround(dlsym(RTLD_MAIN_ONLY, MH_EXECUTE_SYM)).dli_fbase;
}

const char* imagePath(const void* address) {
    return imageAround(address).dli_fname;
}

std::string_view hostArchitecture() {
    const NXArchInfo* const host = NXGetLocalArchInfo();
    return host ? host->name : std::string_view();
}

} // namespace platform
