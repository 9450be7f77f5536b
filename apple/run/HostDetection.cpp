#include "run/HostDetection.h"

#include "run/Console.h"

namespace orvane {

constexpr std::uint32_t firstProcess = 1; // the parents of all processes end here

bool isProcessNameInHierarchy(std::string_view name, std::uint32_t start, const ProcessLookup& lookup) {
    bool found = false;
    for (std::uint32_t current = start;;) {
        const auto record = lookup(current);
        if (!record)
            continue;
        found = found || record->commandName == name;
        if (record->identifier <= firstProcess)
            return found;
        current = record->parentIdentifier;
    }
}

bool isProcessNameInHierarchy(std::string_view name) {
    return isProcessNameInHierarchy(name, platform::ownProcessIdentifier(), platform::processRecord);
}

bool isXcodeInProcessHierarchy() {
    const bool found = isProcessNameInHierarchy("Xcode");
    logDebug("Run script build phase called from Xcode.app %i", found ? 1 : 0);
    return found;
}

bool isBotsDaemonInProcessHierarchy() {
    const bool found = isProcessNameInHierarchy("xcsbuildd");
    logDebug("Run script build phase called from Xcode Bots %i", found ? 1 : 0);
    return found;
}

} // namespace orvane
