#include "platform/process/MappedFiles.h"

#include "platform/process/Log.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>

namespace platform {
namespace {

extern "C" void endAtLostPage(int signalNumber, siginfo_t* information, void*) {
    // On arm64, macOS reports BUS_ADRALN. Any other code is a fault of this program: it occurs again, with
    // the default action, when the handler returns.
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
