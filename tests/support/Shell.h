#pragma once

#include <string>

namespace support {

struct ShellResult {
    std::string output;
    /// As the shell gives it: 128 + N when signal N ended the command.
    int status;
};

/// Runs a shell command to its end and collects its standard output.
ShellResult runShell(const std::string& command);

/// The standard output of a shell command that is expected to end well.
std::string outputOf(const std::string& command);

} // namespace support
