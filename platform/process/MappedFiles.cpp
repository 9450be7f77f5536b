#include "platform/process/MappedFiles.h"

#include "platform/process/Log.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>

namespace platform {
namespace {

extern "C" void endAtLostPage(int signalNumber, siginfo_t* information, void*) {
    // macOS on arm64 reports a lost page as BUS_ADRALN. Any other fault is a fault of this program. It occurs
    // again when the handler returns, and then the default action ends the process.
    if (information->si_code != BUS_ADRERR && information->si_code != BUS_ADRALN) {
        ::signal(signalNumber, SIG_DFL);
        return;
    }
    writeToStandardError(
        "Another program truncated a file while it was being read. Try again when no other program writes the "
        "build's products.\n");
    ::_exit(EXIT_FAILURE);
}

} // namespace

void exitIfAMappedFileIsTruncated() {
    struct sigaction action = {};
    action.sa_sigaction = &endAtLostPage;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGBUS, &action, nullptr);
}

} // namespace platform
