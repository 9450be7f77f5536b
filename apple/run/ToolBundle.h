#pragma once

#include <string>

namespace orvane {

/// The folder that holds the running tool, free of symbolic links: the framework folder.
std::string toolBundlePath();

} // namespace orvane
