#include "Categories/NSTask+Convenience.h"
#include "platform/foundation/Assert.h"
#include "platform/foundation/UTF8.h"
#include "platform/process/Task.h"

#include <memory>
#include <new>

using platform::Data;
using platform::Pipe;
using platform::Task;

namespace {

constexpr const char* launchFunction =
    "+[NSTask(Convenience) launchWithPath:workingDirectory:arguments:environment:completion:]";
constexpr const char* sourceFile = "apple/shared/Categories/NSTask+Convenience";

} // namespace

void NSTask::launchWithPath(const std::string& path, const std::optional<std::string>& workingDirectory,
                            const std::optional<Arguments>& arguments,
                            const std::optional<Environment>& environment, const Completion& completion) {
    const std::unique_ptr<Task> task(new (std::nothrow) Task);
    const std::unique_ptr<Pipe> stdoutPipe = Pipe::create();
    const std::unique_ptr<Pipe> stdinPipe = Pipe::create();
    const std::unique_ptr<Pipe> stderrPipe = Pipe::create();
    PLATFORM_ASSERT(task, "task", launchFunction, sourceFile);
    PLATFORM_ASSERT(stdoutPipe && stdinPipe && stderrPipe, "stdoutPipe && stdinPipe && stderrPipe",
                    launchFunction, sourceFile);

    task->launch({.launchPath = path,
                  .arguments = arguments.value_or(Arguments()),
                  .currentDirectoryPath = workingDirectory,
                  .environment = environment,
                  .standardInput = stdinPipe.get(),
                  .standardOutput = stdoutPipe.get(),
                  .standardError = stderrPipe.get()});
    task->waitUntilExit();
    const Data stderrData(stderrPipe->readDataToEndOfFile());
    const Data stdoutData(stdoutPipe->readDataToEndOfFile());
    completion(stderrData, stdoutData, task->terminationStatus());
}

void NSTask::launchWithPath(const std::string& path, const std::optional<std::string>& workingDirectory,
                            const std::optional<Arguments>& arguments, const Completion& completion) {
    launchWithPath(path, workingDirectory, arguments, std::nullopt, completion);
}

std::optional<std::string> NSTask::stdoutWithLaunchPath(const std::string& path, const Arguments& arguments) {
    std::optional<std::string> result;
    launchWithPath(path, std::nullopt, arguments, [&](const Data&, const Data& stdoutData, std::int32_t) {
        result = platform::decodeUTF8(stdoutData.bytes());
    });
    return result;
}

std::optional<std::string> NSTask::stderrWithLaunchPath(const std::string& path, const Arguments& arguments) {
    std::optional<std::string> result;
    launchWithPath(path, std::nullopt, arguments, [&](const Data& stderrData, const Data&, std::int32_t) {
        result = platform::decodeUTF8(stderrData.bytes());
    });
    return result;
}

bool NSTask::runTaskWithLaunchPath(const std::string& path,
                                   const std::optional<std::string>& currentDirectoryPath,
                                   const Arguments& arguments) {
    bool succeeded = false;
    launchWithPath(path, currentDirectoryPath, arguments,
                   [&](const Data&, const Data&, std::int32_t terminationStatus) {
                       succeeded = terminationStatus == 0;
                   });
    return succeeded;
}

bool NSTask::runTaskWithLaunchPath(const std::string& path, const Arguments& arguments) {
    return runTaskWithLaunchPath(path, std::nullopt, arguments);
}
