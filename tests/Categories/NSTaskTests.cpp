#include "Categories/NSTask+Convenience.h"
#include "platform/Task.h"
#include "support/TemporaryFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

namespace {

using platform::LaunchError;
using support::TemporaryFolder;
using testing::HasSubstr;

constexpr const char* shell = "/bin/sh";

struct Outcome {
    int calls = 0;
    std::string stderrText;
    std::string stdoutText;
    std::int32_t status = -1;
};

Outcome run(const std::string& path, const std::optional<NSTask::Arguments>& arguments,
            const std::optional<std::string>& workingDirectory = std::nullopt,
            const std::optional<NSTask::Environment>& environment = std::nullopt) {
    Outcome outcome;
    NSTask::launchWithPath(path, workingDirectory, arguments, environment,
                           [&](const platform::Data& err, const platform::Data& out, std::int32_t status) {
                               ++outcome.calls;
                               outcome.stderrText = err.bytes();
                               outcome.stdoutText = out.bytes();
                               outcome.status = status;
                           });
    return outcome;
}

Outcome runScript(const std::string& script) {
    return run(shell, NSTask::Arguments{"-c", script});
}

std::size_t openDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

TEST(NSTask, HandsOverBothStreamsAndTheStatusOnce) {
    const Outcome outcome = runScript("printf a; printf b >&2; exit 3");
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_EQ(outcome.stdoutText, "a");
    EXPECT_EQ(outcome.stderrText, "b");
    EXPECT_EQ(outcome.status, 3);
}

TEST(NSTask, TellsASignalFromAnExitStatus) {
    EXPECT_EQ(runScript("kill -KILL $$").status, 128 + SIGKILL);
    EXPECT_EQ(runScript("exit 255").status, 255);
    EXPECT_FALSE(NSTask::runTaskWithLaunchPath(shell, {"-c", "kill -TERM $$"}));
}

TEST(NSTask, PassesArgumentsUntouched) {
    EXPECT_EQ(run("/bin/echo", std::nullopt).stdoutText, "\n");
    EXPECT_EQ(run("/bin/echo", NSTask::Arguments{"", "$HOME", "a  b", "*\n"}).stdoutText,
              " $HOME a  b *\n\n");
}

TEST(NSTask, GivesTheEnvironmentWholeOrTheCallersOwn) {
    EXPECT_EQ(run("/usr/bin/env", std::nullopt, std::nullopt, NSTask::Environment{{"B", "2=2"}, {"A", ""}})
                  .stdoutText,
              "A=\nB=2=2\n");
    EXPECT_EQ(run("/usr/bin/env", std::nullopt, std::nullopt, NSTask::Environment{}).stdoutText, "");
    setenv("ORVANE_TASK_TEST", "inherited", 1);
    EXPECT_THAT(run("/usr/bin/env", std::nullopt).stdoutText, HasSubstr("ORVANE_TASK_TEST=inherited\n"));
}

TEST(NSTask, RunsInTheWorkingDirectory) {
    const TemporaryFolder folder;
    EXPECT_EQ(run("/bin/pwd", std::nullopt, folder.path()).stdoutText, folder.path() + "\n");
    EXPECT_TRUE(NSTask::runTaskWithLaunchPath(shell, folder.path(), {"-c", "touch made-here"}));
    EXPECT_TRUE(std::filesystem::exists(folder.path("made-here")));
    const std::string relative = std::filesystem::relative(shell);
    EXPECT_TRUE(NSTask::runTaskWithLaunchPath(relative, folder.path(), {"-c", "exit 0"}));
}

TEST(NSTask, TextWrappersReturnTheirStreamWhenItIsUTF8) {
    const NSTask::Arguments both = {"-c", "printf 'd\\303\\251'; printf 'b\\n' >&2; exit 1"};
    EXPECT_EQ(NSTask::stdoutWithLaunchPath(shell, both), "d\xC3\xA9");
    EXPECT_EQ(NSTask::stderrWithLaunchPath(shell, both), "b\n");
    const NSTask::Arguments latin1 = {"-c", "printf '\\351'; printf '\\351' >&2"};
    EXPECT_EQ(NSTask::stdoutWithLaunchPath(shell, latin1), std::nullopt);
    EXPECT_EQ(NSTask::stderrWithLaunchPath(shell, latin1), std::nullopt);
    EXPECT_EQ(NSTask::stdoutWithLaunchPath("/bin/true", {}), "");
}

TEST(NSTask, ThrowsWithPathAndReasonWhenNothingCanBeStarted) {
    const TemporaryFolder folder;
    const std::string plain = folder.write("plain", "#!/bin/sh\n");
    const std::string noFormat = folder.write("no-format", "neither script nor program");
    const std::string noInterpreter = folder.write("no-interpreter", "#!/nonexistent/interpreter\n");
    for (const std::string& program : {noFormat, noInterpreter})
        chmod(program.c_str(), 0755);
    const std::string gone = folder.path("gone");
    const struct {
        std::string path;
        std::optional<std::string> workingDirectory;
        NSTask::Arguments arguments;
        NSTask::Environment environment;
        std::string reason;
    } cases[] = {
        {gone, {}, {}, {}, "No such file or directory"},
        {"", {}, {}, {}, "No such file or directory"},
        {plain, {}, {}, {}, "Permission denied"},
        {folder.path(), {}, {}, {}, "Permission denied"},
        {noFormat, {}, {}, {}, "Exec format error"},
        {noInterpreter, {}, {}, {}, "No such file or directory"},
        {shell, gone, {}, {}, "its working directory " + gone + " cannot be entered: No such file"},
        {shell, plain, {}, {}, "its working directory " + plain + " cannot be entered: Not a directory"},
        {shell, {}, {std::string("a\0b", 3)}, {}, "holds a zero byte"},
        {shell, {}, {}, {{"A=B", "C"}}, "no environment variable can be named \"A=B\""},
        {shell, {}, {std::string(1 << 20, 'x')}, {}, "Argument list too long"},
    };
    const std::size_t before = openDescriptors();
    for (const auto& failing : cases) {
        int calls = 0;
        try {
            NSTask::launchWithPath(
                failing.path, failing.workingDirectory, failing.arguments, failing.environment,
                [&](const platform::Data&, const platform::Data&, std::int32_t) { ++calls; });
            ADD_FAILURE() << failing.reason;
        } catch (const LaunchError& error) {
            EXPECT_EQ(error.path(), failing.path);
            EXPECT_THAT(error.reason(), HasSubstr(failing.reason));
            EXPECT_EQ(error.what(), "Cannot launch " + error.path() + ": " + error.reason());
        }
        EXPECT_EQ(calls, 0);
    }
    EXPECT_THROW(NSTask::runTaskWithLaunchPath(gone, {}), LaunchError);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(NSTask, ReleasesEverythingWhateverTheCompletionDoes) {
    const std::size_t before = openDescriptors();
    EXPECT_THROW(NSTask::launchWithPath("/bin/true", std::nullopt, std::nullopt,
                                        [](auto&&...) { throw std::runtime_error("from the completion"); }),
                 std::runtime_error);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(NSTask, GivesTheChildCleanSignalsAndOnlyThreeDescriptors) {
    const int stray = dup(STDERR_FILENO); // not close-on-exec
    sigset_t blocked;
    sigset_t old;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &old);
    const auto oldPipe = signal(SIGPIPE, SIG_IGN);
    const auto oldChild = signal(SIGCHLD, SIG_IGN);
    const Outcome outcome = runScript(
        "grep -E '^Sig(Blk|Ign):' /proc/self/status; n=0; "
        "while [ $n -lt 99 ]; do [ -e /proc/$$/fd/$n ] && printf '%s ' $n; n=$((n+1)); done; exit 7");
    signal(SIGCHLD, oldChild);
    signal(SIGPIPE, oldPipe);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    close(stray);
    EXPECT_EQ(outcome.status, 7);
    const std::string sigpipeAndSigchldClear = "[02468ace]{2}[0-9a-f]{3}";
    EXPECT_THAT(outcome.stdoutText, testing::MatchesRegex("SigBlk:\t0+\nSigIgn:\t[0-9a-f]+" +
                                                          sigpipeAndSigchldClear + "\n0 1 2 "));
}

TEST(NSTask, StandardInputStaysOpenAndEmptyWhileTheChildRuns) {
    // 124 is timeout's status for a command that it had to end: cat saw neither bytes nor an end.
    EXPECT_EQ(run("/usr/bin/timeout", NSTask::Arguments{"0.2", "/bin/cat"}).status, 124);
}

TEST(NSTask, WorksWhenTheCallersStandardStreamsAreClosed) {
    EXPECT_EXIT(
        {
            for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
                close(stream);
            const Outcome outcome = runScript("printf out; printf err >&2; exit 5");
            _exit(outcome.stdoutText == "out" && outcome.stderrText == "err" && outcome.status == 5 ? 42 : 1);
        },
        testing::ExitedWithCode(42), "");
}

TEST(NSTask, AbortsWhenNoPipeCanBeMade) {
    EXPECT_DEATH(
        {
            rlimit none{};
            none.rlim_cur = none.rlim_max = 4;
            setrlimit(RLIMIT_NOFILE, &none);
            NSTask::runTaskWithLaunchPath("/bin/true", {});
        },
        "Assertion failed: \\(stdoutPipe && stdinPipe && stderrPipe\\), function "
        "\\+\\[NSTask\\(Convenience\\) "
        "launchWithPath:workingDirectory:arguments:environment:completion:\\], file "
        "apple/shared/Categories/NSTask\\+Convenience\\.");
}

TEST(NSTask, ManyThreadsRunTheirOwnTasksAtOnce) {
    std::vector<Outcome> outcomes(8);
    std::vector<std::thread> threads;
    threads.reserve(outcomes.size());
    for (std::size_t i = 0; i < outcomes.size(); ++i)
        threads.emplace_back([&outcomes, i] {
            for (int round = 0; round < 10; ++round)
                outcomes[i] = runScript("printf " + std::to_string(i) + "; exit " + std::to_string(i));
        });
    for (std::thread& thread : threads)
        thread.join();
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        EXPECT_EQ(outcomes[i].stdoutText, std::to_string(i));
        EXPECT_EQ(outcomes[i].status, static_cast<int>(i));
    }
}

} // namespace
