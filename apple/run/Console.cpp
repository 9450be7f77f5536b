#include "run/Console.h"

#include <atomic>
#include <cstdlib>

namespace orvane {

static std::atomic<bool> debugModeFlag = false;

bool debugMode() {
    return debugModeFlag;
}

void setDebugMode() {
    debugModeFlag = true;
}

void logWithTag(std::string_view message) {
    NSLog("\n\nOrvane: %@", message);
}

void failWithTitleAndReason(std::string_view title, std::string_view reason) {
    TWLLog("%@\n\n%@", title, reason);
    exitWithFailure();
}

void exitWithFailure() {
    // std::exit would wait for the steps that other threads run and destroy static objects that they use.
    std::_Exit(EXIT_FAILURE);
}

} // namespace orvane
