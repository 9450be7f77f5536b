#pragma once

#include "platform/process/Task.h"

/// What Task::launch does before it starts a child, the same on every system.
namespace platform {

/// Throws LaunchError when the system cannot pass on a text of `setup`.
void checkTexts(const Task::Setup& setup);

/// The launch path, made absolute when the child is to start in another folder.
std::string programPath(const Task::Setup& setup);

/// Has the system keep the exit statuses of children until they are waited for.
void keepExitStatuses();

} // namespace platform
