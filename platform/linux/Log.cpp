#include "platform/Log.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

namespace platform {
namespace {

constexpr int fullStreamPatienceMilliseconds = 1000;

/// A pipe takes at most PIPE_BUF bytes whole (pipe(7)): writers of longer records take turns. The lock ends
/// with the process at the latest.
class TurnOnPipe {
public:
    explicit TurnOnPipe(std::size_t size) {
        struct stat status;
        _held = size > PIPE_BUF && fstat(STDERR_FILENO, &status) == 0 && S_ISFIFO(status.st_mode) &&
                lock(F_WRLCK, F_SETLKW);
    }
    ~TurnOnPipe() {
        if (_held)
            lock(F_UNLCK, F_SETLK);
    }
    TurnOnPipe(const TurnOnPipe&) = delete;
    TurnOnPipe& operator=(const TurnOnPipe&) = delete;

private:
    static bool lock(short type, int command) {
        struct flock whole = {};
        whole.l_type = type;
        whole.l_whence = SEEK_SET;
        return fcntl(STDERR_FILENO, command, &whole) == 0;
    }
    bool _held;
};

/// Waits until a non-blocking stream takes more; false when it does not in good time.
bool becomesWritable() {
    pollfd stream = {STDERR_FILENO, POLLOUT, 0};
    return poll(&stream, 1, fullStreamPatienceMilliseconds) > 0 && (stream.revents & POLLOUT) != 0;
}

std::string header() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tm local;
    localtime_r(&now.tv_sec, &local);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &local);
    char text[256];
    std::snprintf(text, sizeof text, "%s.%03ld %.64s[%d:%ld] ", date, now.tv_nsec / 1'000'000,
                  program_invocation_short_name, getpid(), syscall(SYS_gettid));
    return text;
}

} // namespace

void writeToStandardError(std::string_view text) {
    const TurnOnPipe turn(text.size());
    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written >= 0)
            text.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR && !(errno == EAGAIN && becomesWritable()))
            return;
    }
}

void log(std::string_view message) {
    std::string record = header();
    record += message;
    record += '\n';
    writeToStandardError(record);
}

} // namespace platform
