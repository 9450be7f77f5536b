#pragma once

#include "MachO/TWLMachOBinary.h"
#include "run/BuildSettings.h"

#include <memory>
#include <string>

/// The direct road: the two calls to the service.
namespace orvane {

/// Who calls the service.
struct Credentials {
    std::string apiKey;
    /// 64 bytes, or empty when the command line gave no usable secret.
    std::string buildSecret;
};

/// Tells the service that a build of the app exists; true when it answers 200 or 201. A failure is logged
/// when this is the final attempt, and otherwise tried once more; that second attempt's result is not
/// reported. Blocks until the exchange has ended. Ends the process with status 1 without PLATFORM_NAME or
/// Info.plist.
bool buildConfigure(const BuildSettings& buildSettings, const Credentials& credentials, bool isBuildServer,
                    bool isFinalAttempt);

/// Zips the app's dSYM bundle next to it, uploads it with the UUID and architecture of every slice of
/// `executable` (none when null), and deletes the archive; true when the service answers 200 to 300. A
/// refused upload is logged when this is the final attempt only. Blocks until the exchange has ended. Ends
/// the process with status 1, after saying why, when there is no archiver, or no archive that can be read.
bool uploadDSYM(const BuildSettings& buildSettings, const std::shared_ptr<TWLMachOBinary>& executable,
                const Credentials& credentials, bool isFinalAttempt);

/// The platform word of the service's paths: "mac", "ios" or "unknown". Ends the process with status 1, after
/// saying so, when PLATFORM_NAME is missing or empty.
std::string getAppPlatform(const BuildSettings& buildSettings);

} // namespace orvane
