#pragma once

#include "MachO/TWLMachOBinary.h"
#include "run/BuildSettings.h"
#include "run/ServiceRequest.h"

#include <memory>

namespace orvane {

/// Zips the app's dSYM bundle next to it, uploads it with the UUID and architecture of each slice of
/// `executable` (which may be null), and deletes the archive. True if the service answers 200 to 300. Waits
/// for the answer. A refused upload is logged in the final attempt only. Logs and ends the process with
/// status 1 if the archiver is missing or fails, or if the archive cannot be read.
bool uploadDSYM(const BuildSettings& buildSettings, const std::shared_ptr<TWLMachOBinary>& executable,
                const Credentials& credentials, bool isFinalAttempt);

} // namespace orvane
