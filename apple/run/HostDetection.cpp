#include "run/HostDetection.h"

#include "run/Console.h"

#include <algorithm>
#include <string>
#include <vector>

namespace orvane {
namespace {

constexpr std::uint32_t lastSystemProcess = 1;

} // namespace

bool isProcessNameInHierarchy(std::string_view name, std::uint32_t start, const ProcessLookup& lookup) {
    std::vector<std::string> names;
    for (std::uint32_t current = start;;) {
        const auto record = lookup(current);
        if (!record)
            continue;
        names.push_back(record->commandName);
        if (record->identifier <= lastSystemProcess)
            break;
        current = record->parentIdentifier;
    }
    return std::find(names.begin(), names.end(), name) != names.end();
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
