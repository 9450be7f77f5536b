#include "platform/process/Log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <new>
#include <string>

namespace platform {
namespace {

constexpr int fullStreamPatienceMilliseconds = 1000;

/// Locked while a record is written. A pipe accepts only PIPE_BUF bytes in one piece (pipe(7)), so a longer
/// record can be interrupted by another one. The file lock excludes other processes, the mutex other
/// threads. The system releases the file lock when the process ends.
class Turn {
public:
    Turn() : _thread(threads()) {
        struct stat status;
        _isLocked = fstat(STDERR_FILENO, &status) == 0 && S_ISFIFO(status.st_mode) && lock(F_WRLCK, F_SETLKW);
    }
    ~Turn() {
        if (_isLocked)
            lock(F_UNLCK, F_SETLK);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    // Never destroyed, because threads may log until the process ends.
    static std::mutex& threads() {
        static auto* const mutex = new std::mutex;
        return *mutex;
    }
    static bool lock(short type, int command) {
        struct flock whole = {};
        whole.l_type = type;
        whole.l_whence = SEEK_SET;
        int result = 0;
        do
            result = fcntl(STDERR_FILENO, command, &whole);
        while (result != 0 && errno == EINTR);
        return result == 0;
    }

    const std::lock_guard<std::mutex> _thread;
    bool _isLocked = false;
};

/// Waits until a non-blocking stream accepts more data; false after a timeout.
bool becomesWritable() {
    pollfd stream = {STDERR_FILENO, POLLOUT, 0};
    return poll(&stream, 1, fullStreamPatienceMilliseconds) > 0 && (stream.revents & POLLOUT) != 0;
}

void writeAll(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written >= 0)
            text.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR && !(errno == EAGAIN && becomesWritable()))
            return;
    }
}

std::array<char, 256> header() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tm local;
    localtime_r(&now.tv_sec, &local);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &local);
    std::array<char, 256> text;
    std::snprintf(text.data(), text.size(), "%s.%03ld %.64s[%d:%ld] ", date, now.tv_nsec / 1'000'000,
                  program_invocation_short_name, getpid(), syscall(SYS_gettid));
    return text;
}

} // namespace

void writeToStandardError(std::string_view text) {
    const Turn turn;
    writeAll(text);
}

void log(std::string_view message) {
    const std::array<char, 256> start = header();
    const std::string_view end = message.ends_with('\n') ? "" : "\n";
    try {
        writeToStandardError(std::string(start.data()).append(message).append(end));
    } catch (const std::bad_alloc&) {
        const Turn turn;
        for (const std::string_view part : {std::string_view(start.data()), message, end})
            writeAll(part);
    }
}

} // namespace platform
