#include "support/ChildProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

// macOS does not declare it.
extern "C" char** environ; // NOLINT(readability-redundant-declaration)

namespace support {
namespace {

std::vector<char*> pointers(const std::vector<std::string>& texts) {
    std::vector<char*> result(texts.size() + 1);
    std::transform(texts.begin(), texts.end(), result.begin(),
                   [](const std::string& text) { return const_cast<char*>(text.c_str()); });
    return result;
}

/// A file without a name.
platform::FileDescriptor temporaryFile() {
    std::FILE* const file = std::tmpfile();
    const int descriptor = file ? fcntl(fileno(file), F_DUPFD_CLOEXEC, 0) : -1;
    if (file)
        std::fclose(file);
    return platform::FileDescriptor(descriptor);
}

std::string contents(const platform::FileDescriptor& file) {
    std::string text(static_cast<std::size_t>(lseek(file.get(), 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(file.get(), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    return text;
}

} // namespace

ChildProcess::ChildProcess(const Launch& launch) : _output(temporaryFile()), _error(temporaryFile()) {
    // The child only makes system calls: other threads of the test may hold locks at the time of fork.
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

ChildProcess::~ChildProcess() {
    if (_identifier > 0) {
        kill(SIGKILL);
        wait();
    }
}

Ending ChildProcess::wait() {
    int status = 0;
    EXPECT_GT(waitpid(std::exchange(_identifier, -1), &status, 0), 0);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return {code, contents(_output), contents(_error)};
}

Ending run(const Launch& launch) {
    return ChildProcess(launch).wait();
}

Ending runShell(const std::string& command) {
    Launch launch = {.arguments = {"/bin/sh", "-c", command}};
    for (char** variable = environ; *variable; ++variable)
        launch.environment.emplace_back(*variable);
    return run(launch);
}

std::string outputOf(const std::string& command) {
    const Ending ending = runShell(command);
    EXPECT_EQ(ending.status, 0) << command << "\n" << ending.standardError;
    return ending.standardOutput;
}

} // namespace support
