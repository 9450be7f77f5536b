#pragma once

#include "platform/foundation/Data.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Runs one program to its end. C++ cannot add operations to the platform's process class (platform::Task),
/// so they stand in a class that bears its name and has no objects.
///
/// Every operation blocks the calling thread until the child has exited, and may be called on any thread. The
/// path is used as it stands: no shell, no search path. The child's three standard streams are fresh pipes;
/// nothing comes from its standard input, which does not end either while it runs.
///
/// What the child writes is read only once it has exited. A child that writes more than a pipe holds (64 KiB)
/// to one stream therefore never exits, and the call never returns: run quiet programs only.
///
/// A program that cannot be started, for a reason of its own or of its working directory, is a
/// platform::LaunchError (platform/process/Task.h), and no completion is called. When no pipe can be made the
/// process ends by an assertion.
class NSTask {
public:
    using Arguments = std::vector<std::string>;
    using Environment = std::map<std::string, std::string>;
    /// Takes all that the child wrote to standard error, all that it wrote to standard output, and its exit
    /// status, or 128 + N when signal N ended it. What it throws passes to the caller of the operation.
    using Completion = std::function<void(const platform::Data& stderrData, const platform::Data& stdoutData,
                                          std::int32_t terminationStatus)>;

    NSTask() = delete;

    /// Calls `completion` once, on the calling thread, before returning. No working directory: the caller's.
    /// No environment: the caller's; one that is given is the child's whole environment.
    static void launchWithPath(const std::string& path, const std::optional<std::string>& workingDirectory,
                               const std::optional<Arguments>& arguments,
                               const std::optional<Environment>& environment, const Completion& completion);
    static void launchWithPath(const std::string& path, const std::optional<std::string>& workingDirectory,
                               const std::optional<Arguments>& arguments, const Completion& completion);

    /// One stream as text, or nothing when it is not UTF-8. The other stream and the status are dropped.
    static std::optional<std::string> stdoutWithLaunchPath(const std::string& path,
                                                           const Arguments& arguments);
    static std::optional<std::string> stderrWithLaunchPath(const std::string& path,
                                                           const Arguments& arguments);

    /// True when the exit status is 0. What the child wrote is dropped.
    static bool runTaskWithLaunchPath(const std::string& path,
                                      const std::optional<std::string>& currentDirectoryPath,
                                      const Arguments& arguments);
    static bool runTaskWithLaunchPath(const std::string& path, const Arguments& arguments);
};
