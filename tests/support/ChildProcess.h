#pragma once

#include "platform/files/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace support {

/// How to start a program. The child has exactly this environment.
struct Launch {
    std::vector<std::string> arguments;        // the program first
    std::vector<std::string> environment = {}; // NAME=value, in order
    std::string workingDirectory = {};
};

struct Ending {
    int status = -1; // the exit status, or 128 + the signal that ended the child
    std::string standardOutput;
    std::string standardError;
};

/// A running child in its own process group. Its output goes to files, so that it never blocks. The
/// destructor kills a child that was not waited for.
class ChildProcess {
public:
    explicit ChildProcess(const Launch& launch) {
        const std::vector<char*> arguments = pointers(launch.arguments);
        const std::vector<char*> environment = pointers(launch.environment);
        _identifier = fork();
        if (_identifier != 0)
            return;
        setpgid(0, 0);
        if (dup2(_output.get(), STDOUT_FILENO) >= 0 && dup2(_error.get(), STDERR_FILENO) >= 0 &&
            (launch.workingDirectory.empty() || chdir(launch.workingDirectory.c_str()) == 0))
            execve(arguments[0], arguments.data(), environment.data());
        _exit(127);
    }
    ~ChildProcess() {
        if (_identifier > 0) {
            kill(SIGKILL);
            wait();
        }
    }

    pid_t identifier() const { return _identifier; }
    void kill(int signal) const { ::kill(_identifier, signal); }
    Ending wait() {
        int status = 0;
        EXPECT_GT(waitpid(std::exchange(_identifier, -1), &status, 0), 0);
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return {code, contents(_output), contents(_error)};
    }

private:
    static std::vector<char*> pointers(const std::vector<std::string>& texts) {
        std::vector<char*> result(texts.size() + 1);
        std::ranges::transform(texts, result.begin(),
                               [](const std::string& text) { return const_cast<char*>(text.c_str()); });
        return result;
    }
    static std::string contents(const platform::FileDescriptor& file) {
        std::string text(static_cast<std::size_t>(lseek(file.get(), 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(file.get(), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
        return text;
    }

    pid_t _identifier = -1;
    platform::FileDescriptor _output{memfd_create("stdout", MFD_CLOEXEC)};
    platform::FileDescriptor _error{memfd_create("stderr", MFD_CLOEXEC)};
};

/// Starts a program and waits for its end.
inline Ending run(const Launch& launch) {
    return ChildProcess(launch).wait();
}

/// The same for a shell command, in the environment of the test.
inline Ending runShell(const std::string& command) {
    Launch launch = {.arguments = {"/bin/sh", "-c", command}};
    for (char** variable = environ; *variable; ++variable)
        launch.environment.emplace_back(*variable);
    return run(launch);
}

/// The standard output of a shell command that must succeed.
inline std::string outputOf(const std::string& command) {
    const Ending ending = runShell(command);
    EXPECT_EQ(ending.status, 0) << command << "\n" << ending.standardError;
    return ending.standardOutput;
}

} // namespace support
