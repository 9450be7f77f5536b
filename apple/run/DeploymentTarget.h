#pragma once

#include "MachO/TWLMachOBinary.h"
#include "run/BuildSettings.h"

#include <memory>

namespace orvane {

/// Opens the app's executable and checks the minimum OS version of each slice. Logs and ends the process
/// with status 1 if a version is older than the service supports. Returns the executable. If it cannot be
/// opened, returns null and checks nothing.
std::shared_ptr<TWLMachOBinary> checkDeploymentTarget(const BuildSettings& buildSettings);

/// Whether a version is below iOS 5. If the slice contains no version (major 0), the build setting
/// IPHONEOS_DEPLOYMENT_TARGET is used.
bool iOSDeploymentTargetIsUnsupported(const macho::TWLMachOVersion& version,
                                      const BuildSettings& buildSettings);

/// Whether a version is below 10.7. The minor number is compared for every major number, so 11.0 is
/// unsupported too.
bool OSXDeploymentTargetIsUnsupported(const macho::TWLMachOVersion& version);

} // namespace orvane
