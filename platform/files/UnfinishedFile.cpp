#include "platform/files/UnfinishedFile.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <utility>

namespace platform {
namespace {

constexpr int childPatienceMilliseconds = 2000;
constexpr int pollIntervalMilliseconds = 10;

// The state that the signal handler uses. Only lock-free variables are safe there.
std::atomic<const char*> unfinishedPath = nullptr;
std::atomic<pid_t> workingChild = 0;
static_assert(std::atomic<const char*>::is_always_lock_free && std::atomic<pid_t>::is_always_lock_free);
pthread_t ownerThread;

/// Sends the child the signal that this process got. The child does not ignore that signal: it inherited only
/// the ignored signals, and this one is handled.
void endChild(pid_t child, int signalNumber) {
    ::kill(child, signalNumber);
    for (int waited = 0; waited < childPatienceMilliseconds; waited += pollIntervalMilliseconds) {
        if (::waitpid(child, nullptr, WNOHANG) != 0)
            return;
        ::poll(nullptr, 0, pollIntervalMilliseconds);
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

// All calls in it are safe in a signal handler (signal-safety(7)).
extern "C" void cleanUpAndEnd(int signalNumber) {
    // The owner runs the rest. If it went on, it would see that the child ended and report a failure.
    if (!pthread_equal(pthread_self(), ownerThread)) {
        pthread_kill(ownerThread, signalNumber);
        return;
    }
    if (const pid_t child = workingChild.exchange(0); child > 0)
        endChild(child, signalNumber);
    if (const char* path = unfinishedPath)
        ::unlink(path);
    ::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
    // Ends the process here, before another signal that is waiting can end it.
    sigset_t thisSignal;
    sigemptyset(&thisSignal);
    sigaddset(&thisSignal, signalNumber);
    pthread_sigmask(SIG_UNBLOCK, &thisSignal, nullptr);
}

} // namespace

UnfinishedFile::UnfinishedFile(std::string path) : _path(std::move(path)) {
    ownerThread = pthread_self();
    unfinishedPath = _path.c_str();
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGXCPU}) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = &cleanUpAndEnd;
        action.sa_flags = SA_RESTART;
        sigfillset(&action.sa_mask);
        sigaction(number, &action, nullptr);
    }
}

UnfinishedFile::~UnfinishedFile() {
    unfinishedPath = nullptr;
}

void setWorkingChild(pid_t child) {
    workingChild = child;
}

} // namespace platform
