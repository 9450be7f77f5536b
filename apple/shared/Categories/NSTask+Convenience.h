#pragma once

#include "platform/foundation/Data.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Runs one program to its end. These operations extend platform::Task, which stands for the system's class
/// NSTask. C++ cannot add operations to a class, so they are static functions of this class.
///
/// Each operation blocks the calling thread until the child has exited. Any thread. The path is used
/// unchanged: no shell, no search path. The child's three standard streams are new pipes. Its standard input
/// stays open and provides no data.
///
/// The output is read after the child has exited, because callers rely on one completion with all output and
/// the status. A child that writes more than a pipe holds (64 KiB) to one stream never exits, and the call
/// never returns. Use these operations for programs with little output.
///
/// If the program cannot be started, platform::LaunchError (platform/process/Task.h) is thrown and the
/// completion is not called. If no pipe can be created, the process ends by an assertion.
class NSTask {
public:
    using Arguments = std::vector<std::string>;
    using Environment = std::map<std::string, std::string>;
    /// Receives the child's standard error, standard output and exit status (128 + N if signal N ended it).
    /// An exception passes to the caller of the operation.
    using Completion = std::function<void(const platform::Data& stderrData, const platform::Data& stdoutData,
                                          std::int32_t terminationStatus)>;

    NSTask() = delete;

    /// Calls `completion` once, on the calling thread, before it returns. If the working directory or the
    /// environment is null, the child inherits the caller's; otherwise `environment` is the child's whole
    /// environment.
    static void launchWithPath(const std::string& path, const std::optional<std::string>& workingDirectory,
                               const std::optional<Arguments>& arguments,
                               const std::optional<Environment>& environment, const Completion& completion);
    static void launchWithPath(const std::string& path, const std::optional<std::string>& workingDirectory,
                               const std::optional<Arguments>& arguments, const Completion& completion);

    /// The text of one stream; null if it is not UTF-8. Ignores the other stream and the exit status.
    static std::optional<std::string> stdoutWithLaunchPath(const std::string& path,
                                                           const Arguments& arguments);
    static std::optional<std::string> stderrWithLaunchPath(const std::string& path,
                                                           const Arguments& arguments);

    /// Whether the exit status is 0. Ignores the output.
    static bool runTaskWithLaunchPath(const std::string& path,
                                      const std::optional<std::string>& currentDirectoryPath,
                                      const Arguments& arguments);
    static bool runTaskWithLaunchPath(const std::string& path, const Arguments& arguments);
};
