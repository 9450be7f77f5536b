#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace platform {

/// Why a program could not be started. It never ran when this is thrown.
class LaunchError : public std::runtime_error {
public:
    /// `path` is the launch path as it was given.
    LaunchError(const std::string& path, const std::string& reason)
        : std::runtime_error("Cannot launch " + path + ": " + reason) {}
};

/// A pipe whose two ends belong to this process alone: both close on exec, and neither is one of the
/// descriptors 0 to 2, even when the process was started with those closed. On macOS, NSPipe keeps to
/// neither: prepareStandardStreams (StandardStreams.h) fills 0 to 2, and Task passes on no other descriptor.
class Pipe {
public:
    /// Null when the system has no descriptors left.
    static std::unique_ptr<Pipe> create();

    /// Waits until the last write end is closed and returns all that was written. Throws std::system_error
    /// when the system cannot read.
    std::string readDataToEndOfFile();

private:
    friend class Task;
    struct Ends; // the system's form
    explicit Pipe(std::shared_ptr<Ends> ends) : _ends(std::move(ends)) {}

    std::shared_ptr<Ends> _ends;
};

/// One run of a program, what the platform calls NSTask. An object starts one child. It must wait for it,
/// unless the child is to outlive this process. Different tasks may be used on different threads at the same
/// time.
class Task {
public:
    using Environment = std::map<std::string, std::string>;

    /// What to run. No shell sees any of it and no search path is followed.
    struct Setup {
        /// A relative path is taken from this process's working directory, not from the child's.
        std::string launchPath;
        std::vector<std::string> arguments = {};
        /// Nothing: the child works where this process does.
        std::optional<std::string> currentDirectoryPath = {};
        /// The child's whole environment. Nothing: it gets this process's.
        std::optional<Environment> environment = {};
        /// Null: the stream leads to the null device.
        Pipe* standardInput = nullptr;
        Pipe* standardOutput = nullptr;
        Pipe* standardError = nullptr;
        /// Whether the child leads a new session. Signals to this process's group or terminal do not reach it
        /// then.
        bool newSession = false;
    };

    /// Starts the child, with the default actions for SIGPIPE and SIGXFSZ, no signal blocked, and no
    /// descriptor of this process but its ends of the pipes, which are closed here: reading then ends
    /// when the child does. Other signals that this process ignores are ignored in the child too. An ignored
    /// SIGCHLD is set back to its default in this process, and SA_NOCLDWAIT is taken away, since the system
    /// would keep no exit status. Throws LaunchError when the program or the working directory cannot be
    /// used, or when a text cannot be passed on (a zero byte anywhere; an environment name that is empty or
    /// holds "=").
    /// On macOS, NSTask decides about signals, `newSession` has no effect, and text that is not UTF-8 cannot
    /// be passed on.
    void launch(const Setup& setup);

    /// Blocks until the child has exited. On macOS the calling thread's run loop runs meanwhile.
    void waitUntilExit();

    /// The exit status of a child that has been waited for, or 128 + N when signal N ended it.
    std::int32_t terminationStatus() const { return _terminationStatus; }

private:
    struct Child; // the system's form
    std::shared_ptr<Child> _child;
    std::int32_t _terminationStatus = 0;
};

} // namespace platform
