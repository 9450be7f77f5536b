#pragma once

#include "platform/files/FileDescriptor.h"

#include <signal.h>
#include <sys/types.h>

#include <string>
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
    explicit ChildProcess(const Launch& launch);
    ~ChildProcess();

    pid_t identifier() const { return _identifier; }
    void kill(int signal) const { ::kill(_identifier, signal); }
    Ending wait();

private:
    pid_t _identifier = -1;
    platform::FileDescriptor _output;
    platform::FileDescriptor _error;
};

/// Starts a program and waits for its end.
Ending run(const Launch& launch);

/// The same for a shell command, in the environment of the test.
Ending runShell(const std::string& command);

/// The standard output of a shell command that must succeed.
std::string outputOf(const std::string& command);

} // namespace support
