#include "platform/process/MappedFiles.h"

#include "platform/process/Log.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>

namespace platform {
namespace {

extern "C" void endAtLostPage(int signalNumber, siginfo_t* information, void*) {
    // macOS reports BUS_ADRALN on arm64. Any other cause is a fault of this program, and happens again as
    // soon as this returns.
    if (information->si_code != BUS_ADRERR && information->si_code != BUS_ADRALN) {
        ::signal(signalNumber, SIG_DFL);
        return;
    }
    writeToStandardError(
        "The run cannot go on: a file was cut short while it was being read. Run it again when "
        "nothing writes the build's products any more.\n");
    ::_exit(EXIT_FAILURE);
}

} // namespace

void endWhenAMappedFileIsCutShort() {
    struct sigaction action = {};
    action.sa_sigaction = &endAtLostPage;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGBUS, &action, nullptr);
}

} // namespace platform
