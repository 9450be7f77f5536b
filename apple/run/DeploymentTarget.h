#pragma once

#include "MachO/TWLMachOBinary.h"
#include "run/BuildSettings.h"

#include <memory>

namespace orvane {

/// Opens the app's executable and checks the minimum OS version of each slice. Logs and ends the process
/// with status 1 if a version is older than the service supports. Returns the executable. If it cannot be
/// opened, returns null and checks nothing.
std::shared_ptr<TWLMachOBinary> checkDeploymentTarget(const BuildSettings& buildSettings);

/// Whether a version is below iOS 5. If the slice records no version that the reader knows (major 0, as in
/// apps for iOS 12 and later), the build setting IPHONEOS_DEPLOYMENT_TARGET is used.
bool iOSDeploymentTargetIsUnsupported(const macho::TWLMachOVersion& version,
                                      const BuildSettings& buildSettings);

/// Whether the major number is below 10 or the minor number is below 7. The numbers are compared separately,
/// so 11.0 counts as unsupported too.
bool OSXDeploymentTargetIsUnsupported(const macho::TWLMachOVersion& version);

} // namespace orvane
