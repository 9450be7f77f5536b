#include "support/Shell.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>

namespace support {

ShellResult runShell(const std::string& command) {
    FILE* const pipe = popen(command.c_str(), "r");
    std::string output;
    for (int c = 0; (c = fgetc(pipe)) != EOF;)
        output += static_cast<char>(c);
    const int status = pclose(pipe);
    return {output, WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status)};
}

std::string outputOf(const std::string& command) {
    const ShellResult result = runShell(command);
    EXPECT_EQ(result.status, 0) << command;
    return result.output;
}

} // namespace support
