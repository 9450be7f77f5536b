#include "run/ToolBundle.h"

#include "platform/OwnImage.h"

#include <string_view>

namespace orvane {

std::string toolBundlePath() {
    const char* path = platform::imagePath(platform::ownImageBase());
    const std::string_view executable = path ? path : "";
    return std::string(executable.substr(0, executable.rfind('/')));
}

} // namespace orvane
