#include "platform/process/StandardStreams.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace platform {

void prepareStandardStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        if (fcntl(stream, F_GETFD) == -1)
            // open returns the lowest free number, which is the number of the closed stream.
            static_cast<void>(::open("/dev/null", O_RDWR));
    // Without these signals, a write that fails returns an error.
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
}

} // namespace platform
