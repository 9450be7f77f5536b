#include "platform/process/Task.h"

#include "platform/files/FileDescriptor.h"
#include "platform/files/UnfinishedFile.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace platform {
namespace {

std::string reasonOf(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

/// Opens the null device. A root file system that contains only one program may have no devices; an empty
/// file in memory replaces it there.
FileDescriptor openNullDevice() {
    const int device = open("/dev/null", O_RDWR | O_CLOEXEC);
    return aboveStandardStreams(device >= 0 ? device : memfd_create("null", MFD_CLOEXEC));
}

/// The signal set-up of the child. The default actions of SIGPIPE and SIGXFSZ are restored because this
/// process ignores them, and signals that this process blocks are unblocked.
class SpawnSetup {
public:
    explicit SpawnSetup(const Task::Setup& setup) : _launchPath(setup.launchPath) {
        const int session = setup.newSession ? POSIX_SPAWN_SETSID : 0;
        sigset_t signals;
        check(posix_spawn_file_actions_init(&_actions));
        posix_spawnattr_init(&_attributes);
        posix_spawnattr_setflags(
            &_attributes, static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | session));
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&_attributes, &signals);
        sigaddset(&signals, SIGPIPE);
        sigaddset(&signals, SIGXFSZ);
        posix_spawnattr_setsigdefault(&_attributes, &signals);
    }
    ~SpawnSetup() {
        posix_spawnattr_destroy(&_attributes);
        posix_spawn_file_actions_destroy(&_actions);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    void changeFolder(int folder) { check(posix_spawn_file_actions_addfchdir_np(&_actions, folder)); }
    void connect(const FileDescriptor& end, int stream) {
        check(posix_spawn_file_actions_adddup2(&_actions, end.get(), stream));
    }
    const posix_spawn_file_actions_t* actions() const { return &_actions; }
    const posix_spawnattr_t* attributes() const { return &_attributes; }

private:
    void check(int errorNumber) const {
        if (errorNumber != 0)
            throw LaunchError(_launchPath, reasonOf(errorNumber));
    }

    const std::string& _launchPath;
    posix_spawn_file_actions_t _actions;
    posix_spawnattr_t _attributes;
};

/// Makes all descriptors except the standard streams close when a child's program starts. They are marked
/// here and not closed in the child: without close_range(2), the C library needs /proc to find them there.
void closeDescriptorsInPrograms() {
    constexpr int lowest = STDERR_FILENO + 1;
    if (close_range(lowest, ~0U, CLOSE_RANGE_CLOEXEC) == 0)
        return;
    // An old kernel, or a sandbox that refuses the call. The limit of descriptors can be a billion.
    const auto end = static_cast<int>(std::min(sysconf(_SC_OPEN_MAX), 65536L));
    for (int descriptor = lowest; descriptor < end; ++descriptor)
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

/// Opened here to distinguish a missing folder from a missing program.
FileDescriptor openWorkingDirectory(const Task::Setup& setup) {
    const std::string& path = *setup.currentDirectoryPath;
    FileDescriptor folder = openFolder(AT_FDCWD, path.c_str());
    if (!folder || faccessat(folder.get(), ".", X_OK, AT_EACCESS) != 0)
        throw LaunchError(setup.launchPath,
                          "its working directory " + path + " cannot be entered: " + reasonOf(errno));
    return folder;
}

/// The null-terminated array that execve takes. It points into `texts`.
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

struct Pipe::Ends {
    FileDescriptor read;
    FileDescriptor write;
};

struct Task::Child {
    pid_t identifier = -1;
};

std::unique_ptr<Pipe> Pipe::create() {
    std::unique_ptr<Pipe> pipe(new Pipe(std::make_shared<Ends>()));
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return nullptr;
    *pipe->_ends = {aboveStandardStreams(ends[0]), aboveStandardStreams(ends[1])};
    return pipe->_ends->read && pipe->_ends->write ? std::move(pipe) : nullptr;
}

std::string Pipe::readDataToEndOfFile() {
    std::string bytes;
    char buffer[16384];
    while (true) {
        const ssize_t got = read(_ends->read.get(), buffer, sizeof buffer);
        if (got == 0)
            return bytes;
        if (got > 0)
            bytes.append(buffer, static_cast<std::size_t>(got));
        else if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "read from a pipe");
    }
}

std::shared_ptr<Task::Child> Task::start(const Setup& setup, const std::string& program) {
    std::vector<std::string> words = setup.arguments;
    words.insert(words.begin(), setup.launchPath);
    std::vector<std::string> variables;
    for (const auto& [name, value] : setup.environment.value_or(Environment()))
        variables.emplace_back(name).append("=").append(value);
    const std::vector<char*> arguments = pointersTo(words);
    const std::vector<char*> ownEnvironment = pointersTo(variables);
    char* const* const environment = setup.environment ? ownEnvironment.data() : environ;

    SpawnSetup spawn(setup);
    FileDescriptor folder;
    if (setup.currentDirectoryPath) {
        folder = openWorkingDirectory(setup);
        spawn.changeFolder(folder.get());
    }
    FileDescriptor* const ends[] = {setup.standardInput ? &setup.standardInput->_ends->read : nullptr,
                                    setup.standardOutput ? &setup.standardOutput->_ends->write : nullptr,
                                    setup.standardError ? &setup.standardError->_ends->write : nullptr};
    const bool connected = std::find(std::begin(ends), std::end(ends), nullptr) == std::end(ends);
    const FileDescriptor nullDevice = connected ? FileDescriptor() : openNullDevice();
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        spawn.connect(ends[stream] ? *ends[stream] : nullDevice, stream);
    closeDescriptorsInPrograms();

    auto child = std::make_shared<Child>();
    // No signal may end this process between the start of the child and setWorkingChild.
    sigset_t allSignals, blockedBefore;
    sigfillset(&allSignals);
    pthread_sigmask(SIG_BLOCK, &allSignals, &blockedBefore);
    const int errorNumber = posix_spawn(&child->identifier, program.c_str(), spawn.actions(),
                                        spawn.attributes(), arguments.data(), environment);
    if (errorNumber == 0 && !setup.newSession)
        setWorkingChild(child->identifier);
    pthread_sigmask(SIG_SETMASK, &blockedBefore, nullptr);
    if (errorNumber != 0)
        throw LaunchError(setup.launchPath, reasonOf(errorNumber));
    for (FileDescriptor* end : ends)
        if (end)
            end->reset();
    return child;
}

std::int32_t Task::waitFor(const Child& child) {
    // First without reaping, because a signal handler may use the identifier until it is replaced.
    siginfo_t information;
    while (waitid(P_PID, static_cast<id_t>(child.identifier), &information, WEXITED | WNOWAIT) < 0)
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "wait for a child process");
    setWorkingChild(0);
    int status = 0;
    waitpid(child.identifier, &status, 0);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace platform
