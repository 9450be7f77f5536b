#include "platform/process/Task.h"

#include "platform/files/UnfinishedFile.h"
#include "platform/foundation/macos/Bridge.h"

#include <cerrno>
#include <system_error>

namespace platform {

struct Pipe::Ends {
    NSPipe* pipe;
};

struct Task::Child {
    NSTask* task;
};

namespace {

NSString* stringForChild(const std::string& text, const Task::Setup& setup) {
    NSString* const string = stringFrom(text);
    if (!string)
        throw LaunchError(setup.launchPath, "a path, an argument or an environment variable is not UTF-8");
    return string;
}

NSTask* taskFor(const Task::Setup& setup, const std::string& program) {
    NSTask* const task = [[NSTask alloc] init];
    if (setup.currentDirectoryPath)
        task.currentDirectoryPath = stringForChild(*setup.currentDirectoryPath, setup);
    task.launchPath = stringForChild(program, setup);
    NSMutableArray<NSString*>* const arguments = [NSMutableArray array];
    for (const std::string& argument : setup.arguments)
        [arguments addObject:stringForChild(argument, setup)];
    task.arguments = arguments;
    if (setup.environment) {
        NSMutableDictionary<NSString*, NSString*>* const environment = [NSMutableDictionary dictionary];
        for (const auto& [name, value] : *setup.environment)
            environment[stringForChild(name, setup)] = stringForChild(value, setup);
        task.environment = environment;
    }
    return task;
}

} // namespace

std::unique_ptr<Pipe> Pipe::create() {
    @autoreleasepool {
        NSPipe* const pipe = [NSPipe pipe];
        return std::unique_ptr<Pipe>(pipe ? new Pipe(std::make_shared<Ends>(Ends{pipe})) : nullptr);
    }
}

std::string Pipe::readDataToEndOfFile() {
    @autoreleasepool {
        @try {
            NSData* const data = [_ends->pipe.fileHandleForReading readDataToEndOfFile];
            return std::string(static_cast<const char*>(data.bytes), data.length);
        } @catch (NSException*) {
        }
    }
    throw std::system_error(EIO, std::generic_category(), "read from a pipe");
}

std::shared_ptr<Task::Child> Task::start(const Setup& setup, const std::string& program) {
    NSString* failure = nil;
    @autoreleasepool {
        const auto streamFor = [](const Pipe* pipe) -> id {
            return pipe ? static_cast<id>(pipe->_ends->pipe) : NSFileHandle.fileHandleWithNullDevice;
        };
        @try {
            NSTask* const task = taskFor(setup, program);
            task.standardOutput = streamFor(setup.standardOutput);
            task.standardInput = streamFor(setup.standardInput);
            task.standardError = streamFor(setup.standardError);
            [task launch]; // closes this process's copies of the child's ends
            if (!setup.newSession)
                setWorkingChild(task.processIdentifier);
            return std::make_shared<Child>(Child{task});
        } @catch (NSException* exception) {
            failure = exception.reason ?: exception.name;
        }
    }
    throw LaunchError(setup.launchPath, textFrom(failure));
}

std::int32_t Task::waitFor(const Child& child) {
    @autoreleasepool {
        NSTask* const task = child.task;
        [task waitUntilExit];
        // NSTask has reaped the child already; macOS does not give its identifier away so soon.
        setWorkingChild(0);
        const bool isSignal = task.terminationReason == NSTaskTerminationReasonUncaughtSignal;
        return (isSignal ? 128 : 0) + task.terminationStatus;
    }
}

} // namespace platform
