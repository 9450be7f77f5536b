#pragma once

#include <string>

namespace orvane {

/// The folder that holds the running tool, free of symbolic links: the framework folder. Empty when the
/// system does not say where that is.
std::string toolBundlePath();

} // namespace orvane
