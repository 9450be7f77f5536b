#pragma once

#include "platform/process/Task.h"

/// The parts of Task::launch that all systems share.
namespace platform {

/// Throws LaunchError if the system cannot pass a text of `setup` to a child.
void checkTexts(const Task::Setup& setup);

/// The launch path, made absolute if the child starts in another folder.
std::string programPath(const Task::Setup& setup);

/// Makes the system keep the exit statuses of children until they are waited for.
void keepExitStatuses();

} // namespace platform
