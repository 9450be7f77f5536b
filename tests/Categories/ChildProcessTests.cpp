#include "Categories/NSTask+Convenience.h"
#include "platform/foundation/Format.h"
#include "platform/process/Task.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

namespace {

TEST(NSTask, NamesTheSystemsReasonIfAProgramCannotBeStarted) {
    const support::TemporaryFolder folder;
    const std::string plain = folder.write("plain", "#!/bin/sh\n"), gone = folder.path("gone");
    const struct {
        std::string path;
        std::optional<std::string> workingDirectory;
        std::string reason;
    } cases[] = {
        {gone, {}, "No such file or directory"},
        {plain, {}, "Permission denied"},
        {"/bin/sh", plain, "its working directory " + plain + " cannot be entered: Not a directory"}};
    for (const auto& [path, workingDirectory, reason] : cases)
        try {
            NSTask::launchWithPath(path, workingDirectory, {}, {}, [](auto&&...) { ADD_FAILURE(); });
        } catch (const platform::LaunchError& error) {
            EXPECT_EQ(error.what(), platform::format("Cannot launch %@: %@", path, reason));
        }
}

TEST(NSTask, StartsChildrenWithDefaultSignalsAndThreeDescriptors) {
    struct sigaction ignored = {}, withoutStatus = {};
    ignored.sa_handler = SIG_IGN;
    withoutStatus.sa_flags = SA_NOCLDWAIT;
    // Compare the last seven hexadecimal digits of the masks, which are the signals 1 to 28: the C library
    // uses some higher signals itself.
    const NSTask::Arguments script = {
        "-c", "grep -E '^Sig(Blk|Ign)' /proc/self/status | grep -o '.......$'; ls /proc/$$/fd; exit 7"};
    for (const auto& ofChildren : {ignored, withoutStatus})
        EXPECT_EXIT(
            {
                dup2(STDERR_FILENO, 50);
                for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
                    close(stream);
                for (int number = 1; number < NSIG; ++number)
                    signal(number, number == SIGPIPE ? SIG_IGN : SIG_DFL);
                sigaction(SIGCHLD, &ofChildren, nullptr);
                sigset_t all;
                sigfillset(&all);
                sigprocmask(SIG_BLOCK, &all, nullptr);
                NSTask::launchWithPath("/bin/sh", {}, script, [](auto&&, auto&& out, auto status) {
                    _exit(status == 7 && out.bytes() == "0000000\n0000000\n0\n1\n2\n" ? 42 : 1);
                });
            },
            testing::ExitedWithCode(42), "");
}

} // namespace
