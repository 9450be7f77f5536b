#include "platform/process/StandardStreams.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace platform {

void prepareStandardStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        if (fcntl(stream, F_GETFD) == -1)
            // The lowest free number is taken, which is this stream's.
            static_cast<void>(::open("/dev/null", O_RDWR));
    // Both are errors of the write instead.
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
}

} // namespace platform
