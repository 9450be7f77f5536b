#include "Categories/MD5.h"
#include "Categories/NSTask+Convenience.h"
#include "platform/process/Task.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

namespace {

using namespace std::string_literals;
using platform::Data;

TEST(MD5, HashesAllDataAndTextUpToItsFirstZero) {
    EXPECT_EQ(MD5("message digest\0 and more"s), "f96b697d7cb7938d525a2f31aaf161d0"); // RFC 1321, A.5
    EXPECT_EQ(MD5(Data("\0"s)), "93b885adfe0da089cdf634904fd59f71");
}

/// "status|standard output|standard error" for each call of the completion.
std::string run(const std::string& path, const std::optional<NSTask::Arguments>& arguments,
                const std::optional<std::string>& workingDirectory = {},
                const std::optional<NSTask::Environment>& environment = {}) {
    std::ostringstream outcome;
    NSTask::launchWithPath(path, workingDirectory, arguments, environment,
                           [&](const Data& err, const Data& out, std::int32_t status) {
                               outcome << status << "|" << out.bytes() << "|" << err.bytes();
                           });
    return outcome.str();
}

std::string runScript(const std::string& script) {
    return run("/bin/sh", NSTask::Arguments{"-c", script});
}

TEST(NSTask, ReturnsStatusAndOutput) {
    EXPECT_EQ(runScript("printf a; printf b >&2; printf $PATH; exit 255"), "255|a"s + getenv("PATH") + "|b");
    EXPECT_EQ(runScript("kill -KILL $$"), "137||");
    EXPECT_EQ(run("/bin/echo", {{"", "$HOME", "a  b", "*\n"}}), "0| $HOME a  b *\n\n|");
    EXPECT_EQ(run("/usr/bin/env", {}, {}, {{{"B", "2=2"}, {"A", ""}}}), "0|A=\nB=2=2\n|");
    EXPECT_EQ(run("/usr/bin/env", {}, {}, NSTask::Environment()), "0||");
    EXPECT_EQ(run(std::filesystem::relative("/bin/pwd"), {}, "/proc"), "0|/proc\n|");
    // timeout exits with 124 if it had to end the command: cat got neither bytes nor an end of file.
    EXPECT_EQ(run("/usr/bin/timeout", {{"0.2", "/bin/cat"}}), "124||");
}

TEST(NSTask, WrappersReturnOutputOrSuccess) {
    const NSTask::Arguments both = {"-c", "printf 'd\\303\\251'; printf 'b\\351' >&2; exit 3"};
    EXPECT_EQ(NSTask::stdoutWithLaunchPath("/bin/sh", both), "d\xC3\xA9");
    EXPECT_EQ(NSTask::stderrWithLaunchPath("/bin/sh", both), std::nullopt) << "no UTF-8";
    EXPECT_EQ(NSTask::stderrWithLaunchPath("/bin/sh", {"-c", "echo b >&2"}), "b\n");
    EXPECT_FALSE(NSTask::runTaskWithLaunchPath("/bin/sh", both));
    EXPECT_TRUE(NSTask::runTaskWithLaunchPath("/bin/sh", "/proc", {"-c", "test $PWD = /proc"}));
}

TEST(NSTask, ThrowsIfAProgramCannotBeStartedAndLeaksNoDescriptors) {
    const support::TemporaryFolder folder;
    const std::string plain = folder.write("plain", "#!/bin/sh\n"), gone = folder.path("gone");
    const struct {
        std::string path, argument, workingDirectory, reason;
    } cases[] = {
        {gone, "", "/", "No such file or directory"},
        {plain, "", "/", "Permission denied"},
        {"/bin/sh", "", plain, "its working directory " + plain + " cannot be entered: Not a directory"},
        {"/bin/sh", "a\0b"s, "/", "a path, an argument or an environment variable holds a zero byte"}};
    const int lowestFree = dup(0);
    close(lowestFree);
    for (const auto& [path, argument, workingDirectory, reason] : cases)
        try {
            ADD_FAILURE() << run(path, {{argument}}, workingDirectory) << reason;
        } catch (const platform::LaunchError& error) {
            EXPECT_EQ(error.what(), "Cannot launch "s.append(path).append(": ").append(reason));
        }
    EXPECT_THROW(run("/bin/true", {}, {}, {{{"A=B", "C"}}}), platform::LaunchError);
    EXPECT_THROW(NSTask::launchWithPath("/bin/true", {}, {}, [](auto&&...) { throw 1; }), int);
    EXPECT_EQ(dup(0), lowestFree);
}

TEST(NSTask, StartsChildrenWithDefaultSignalsAndThreeDescriptors) {
    struct sigaction ignored = {}, withoutStatus = {};
    ignored.sa_handler = SIG_IGN;
    withoutStatus.sa_flags = SA_NOCLDWAIT;
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
                // Compare the last seven hexadecimal digits of the masks, which are the signals 1 to 28: the
                // C library uses some higher signals itself.
                const std::string outcome = runScript(
                    "grep -E '^Sig(Blk|Ign)' /proc/self/status | grep -o '.......$'; ls /proc/$$/fd; exit 7");
                _exit(outcome == "7|0000000\n0000000\n0\n1\n2\n|" ? 42 : 1);
            },
            testing::ExitedWithCode(42), "");
}

TEST(Task, AbortsIfItsCallsComeInAnotherOrder) {
    const platform::Task::Setup setup = {.launchPath = "/bin/sh", .arguments = {"-c", "exit 3"}};
    platform::Task task;
    EXPECT_THROW(task.launch({.launchPath = "/none"}), platform::LaunchError);
    EXPECT_DEATH(task.waitUntilExit(), "Assertion failed: \\(_child\\), function Task::waitUntilExit");
    task.launch(setup);
    EXPECT_DEATH(task.launch(setup), "Task::launch");
    EXPECT_DEATH(static_cast<void>(task.terminationStatus()), "Task::terminationStatus");
    task.waitUntilExit();
    task.waitUntilExit();
    EXPECT_EQ(task.terminationStatus(), 3);
}

TEST(NSTask, AbortsIfNoPipeCanBeCreated) {
    const rlimit four = {4, 4}; // set in the process of the death test
    EXPECT_DEATH(
        (setrlimit(RLIMIT_NOFILE, &four), run("/bin/true", {})),
        testing::HasSubstr(
            "Assertion failed: (stdoutPipe && stdinPipe && stderrPipe), function +[NSTask(Convenience) "
            "launchWithPath:workingDirectory:arguments:environment:completion:], file "
            "apple/shared/Categories/NSTask+Convenience."));
}

} // namespace
