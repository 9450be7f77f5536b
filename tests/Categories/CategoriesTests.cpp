#include "Categories/MD5.h"
#include "Categories/NSTask+Convenience.h"
#include "platform/process/Task.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
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
    const support::TemporaryFolder folder;
    folder.write("file", "content");
    EXPECT_EQ(run(std::filesystem::relative("/bin/cat"), {{"file"}}, folder.path()), "0|content|");
    // 143: the signal ended cat, so it got neither bytes nor an end of file.
    EXPECT_EQ(runScript("exec 3<&0 2>/dev/null; cat <&3 & sleep 0.2; kill $!; wait $!"), "143||");
}

TEST(NSTask, GivesTheChildThisEnvironmentOnly) {
    EXPECT_EQ(run("/usr/bin/env", {}, {}, {{{"B", "2=2"}, {"A", ""}}}), "0|A=\nB=2=2\n|");
    EXPECT_EQ(run("/usr/bin/env", {}, {}, NSTask::Environment()), "0||");
}

TEST(NSTask, WrappersReturnOutputOrSuccess) {
    const NSTask::Arguments both = {"-c", "printf 'd\\303\\251'; printf 'b\\351' >&2; exit 3"};
    EXPECT_EQ(NSTask::stdoutWithLaunchPath("/bin/sh", both), "d\xC3\xA9");
    EXPECT_EQ(NSTask::stderrWithLaunchPath("/bin/sh", both), std::nullopt) << "no UTF-8";
    EXPECT_EQ(NSTask::stderrWithLaunchPath("/bin/sh", {"-c", "echo b >&2"}), "b\n");
    EXPECT_FALSE(NSTask::runTaskWithLaunchPath("/bin/sh", both));
    const support::TemporaryFolder folder;
    folder.write("file", "");
    EXPECT_TRUE(NSTask::runTaskWithLaunchPath("/bin/sh", folder.path(), {"-c", "test -f file"}));
}

TEST(NSTask, ThrowsIfAProgramCannotBeStarted) {
    const support::TemporaryFolder folder;
    const std::string plain = folder.write("plain", "#!/bin/sh\n"), gone = folder.path("gone");
    const struct {
        std::string path, argument, workingDirectory, reason; // no reason: the system's
    } cases[] = {
        {gone, "", "/", ""},
        {plain, "", "/", ""},
        {"/bin/sh", "", plain, ""},
        {"/bin/sh", "a\0b"s, "/", "a path, an argument or an environment variable holds a zero byte"}};
    for (const auto& [path, argument, workingDirectory, reason] : cases)
        try {
            ADD_FAILURE() << run(path, {{argument}}, workingDirectory) << reason;
        } catch (const platform::LaunchError& error) {
            EXPECT_THAT(error.what(),
                        testing::StartsWith("Cannot launch "s.append(path).append(": ") + reason));
        }
    EXPECT_THROW(run("/usr/bin/true", {}, {}, {{{"A=B", "C"}}}), platform::LaunchError);
}

TEST(NSTask, LeaksNoDescriptors) {
    const int lowestFree = dup(0);
    close(lowestFree);
    EXPECT_THROW(run("/none", {}), platform::LaunchError);
    EXPECT_THROW(NSTask::launchWithPath("/usr/bin/true", {}, {}, [](auto&&...) { throw 1; }), int);
    EXPECT_EQ(dup(0), lowestFree);
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
        (setrlimit(RLIMIT_NOFILE, &four), run("/usr/bin/true", {})),
        testing::HasSubstr(
            "Assertion failed: (stdoutPipe && stdinPipe && stderrPipe), function +[NSTask(Convenience) "
            "launchWithPath:workingDirectory:arguments:environment:completion:], file "
            "apple/shared/Categories/NSTask+Convenience."));
}

} // namespace
