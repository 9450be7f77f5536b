#pragma once

#include "MachO/TWLMachOBinary.h"
#include "run/BuildSettings.h"

#include <memory>

namespace orvane {

/// Opens the app's built executable and checks the minimum OS version of each of its slices. Returns the
/// executable, or null when it cannot be opened: then nothing is checked. Ends the process with status 1,
/// after saying so, when a slice is built for an OS older than the service supports.
std::shared_ptr<TWLMachOBinary> checkDeploymentTarget(const BuildSettings& buildSettings);

/// Whether a version is below iOS 5. A version with major 0 was not recorded in the slice; the build setting
/// IPHONEOS_DEPLOYMENT_TARGET decides then.
bool iOSDeploymentTargetIsUnsupported(const macho::TWLMachOVersion& version,
                                      const BuildSettings& buildSettings);

/// Whether a version is below 10.7. The minor number is judged under every major, so 11.0 is unsupported too.
bool OSXDeploymentTargetIsUnsupported(const macho::TWLMachOVersion& version);

} // namespace orvane
