#pragma once

#include <string>

namespace orvane {

/// The framework folder: the folder of the running tool, with symbolic links resolved. Empty if the system
/// does not report it.
std::string toolBundlePath();

} // namespace orvane
