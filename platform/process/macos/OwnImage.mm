#include "platform/process/OwnImage.h"

#include <dlfcn.h>
#include <mach-o/arch.h>
#include <mach-o/ldsyms.h>

namespace platform {

const void* ownImageBase() {
    return &_mh_execute_header;
}

const char* imagePath(const void* address) {
    Dl_info image;
    return address && dladdr(address, &image) != 0 ? image.dli_fname : nullptr;
}

std::string_view hostArchitecture() {
    const NXArchInfo* const host = NXGetLocalArchInfo();
    return host ? host->name : std::string_view();
}

} // namespace platform
