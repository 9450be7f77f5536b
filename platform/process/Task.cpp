#include "platform/process/Task.h"

#include "platform/foundation/Assert.h"
#include "platform/foundation/Path.h"

#include <signal.h>

namespace platform {
namespace {

constexpr const char* sourceFile = "platform/process/Task";

/// Throws LaunchError if the system cannot pass a text of `setup` to a child.
void checkTexts(const Task::Setup& setup) {
    bool passable = !hasZeroByte(setup.launchPath) && !hasZeroByte(setup.currentDirectoryPath.value_or(""));
    for (const std::string& argument : setup.arguments)
        passable &= !hasZeroByte(argument);
    for (const auto& [name, value] : setup.environment.value_or(Task::Environment())) {
        passable &= !hasZeroByte(name) && !hasZeroByte(value);
        if (name.empty() || name.find('=') != std::string::npos)
            throw LaunchError(setup.launchPath, "no environment variable can be named \"" + name + "\"");
    }
    if (!passable)
        throw LaunchError(setup.launchPath,
                          "a path, an argument or an environment variable holds a zero byte");
}

/// The launch path, made absolute if the child starts in another folder.
std::string programPath(const Task::Setup& setup) {
    if (setup.launchPath.starts_with('/') || setup.launchPath.empty() || !setup.currentDirectoryPath)
        return setup.launchPath;
    return pathByAppending(currentDirectory().value_or("."), setup.launchPath);
}

/// Makes the system keep the exit statuses of children until they are waited for.
void keepExitStatuses() {
    struct sigaction action;
    if (sigaction(SIGCHLD, nullptr, &action) != 0)
        return;
    action.sa_flags &= ~SA_NOCLDWAIT;
    if ((action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN)
        action.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &action, nullptr);
}

} // namespace

void Task::launch(const Setup& setup) {
    PLATFORM_ASSERT(!_child, "!_child", "Task::launch", sourceFile);
    checkTexts(setup);
    keepExitStatuses();
    _child = start(setup, programPath(setup));
}

void Task::waitUntilExit() {
    PLATFORM_ASSERT(_child, "_child", "Task::waitUntilExit", sourceFile);
    if (!_terminationStatus)
        _terminationStatus = waitFor(*_child);
}

std::int32_t Task::terminationStatus() const {
    PLATFORM_ASSERT(_terminationStatus, "_terminationStatus", "Task::terminationStatus", sourceFile);
    return *_terminationStatus;
}

} // namespace platform
