#include "run/ToolBundle.h"

#include "platform/files/Files.h"
#include "platform/process/OwnImage.h"

#include <algorithm>

namespace orvane {

std::string toolBundlePath() {
    const char* const path = platform::imagePath(platform::ownImageBase());
    const std::string executable = platform::resolveSymbolicLinks(path ? path : "");
    const std::string folder = executable.substr(0, std::max<std::size_t>(executable.rfind('/'), 1));
    // Resolved again for a tool that was deleted: its path cannot be resolved, but that of its folder can.
    return platform::resolveSymbolicLinks(folder);
}

} // namespace orvane
