#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace platform {

/// A program could not be started. It did not run at all.
class LaunchError : public std::runtime_error {
public:
    /// `path` is the launch path that the caller set.
    LaunchError(const std::string& path, const std::string& reason)
        : std::runtime_error("Cannot launch " + path + ": " + reason) {}
};

/// A pipe for a child's standard stream. This process can only read it. As standard input it provides neither
/// bytes nor an end of file while the object exists. No child inherits its ends, and they do not have the
/// numbers 0 to 2, even if the process was started with closed standard streams. On macOS, NSPipe guarantees
/// neither: prepareStandardStreams (StandardStreams.h) occupies 0 to 2, and Task passes no other descriptor
/// to a child.
class Pipe {
public:
    /// Null if the system has no free descriptors.
    static std::unique_ptr<Pipe> create();

    /// Waits until all write ends are closed and returns the bytes that were written. Throws
    /// std::system_error if a read fails.
    std::string readDataToEndOfFile();

private:
    friend class Task;
    struct Ends; // defined for each system
    explicit Pipe(std::shared_ptr<Ends> ends) : _ends(std::move(ends)) {}

    std::shared_ptr<Ends> _ends;
};

/// One run of a program (Apple's NSTask). An object starts one child. The caller must wait for the child,
/// unless it may outlive this process. Different tasks may be used on different threads. Calls in another
/// order than launch, waitUntilExit, terminationStatus are faults of the program and end it by an assertion.
class Task {
public:
    using Environment = std::map<std::string, std::string>;

    /// What to run. No shell is used and no search path.
    struct Setup {
        /// A relative path starts at this process's working directory, not the child's.
        std::string launchPath;
        std::vector<std::string> arguments = {};
        /// If null, the child has this process's working directory.
        std::optional<std::string> currentDirectoryPath = {};
        /// The child's whole environment. If null, it inherits this process's.
        std::optional<Environment> environment = {};
        /// If null, the stream is the null device.
        Pipe* standardInput = nullptr;
        Pipe* standardOutput = nullptr;
        Pipe* standardError = nullptr;
        /// Whether the child leads a new session. If so, it does not receive signals to this process's group
        /// or terminal, and an UnfinishedFile (platform/files) does not end it.
        bool newSession = false;
    };

    /// Starts the child. It gets the default actions for SIGPIPE and SIGXFSZ, no blocked signals, and only
    /// its ends of the pipes. This process closes those ends, so that reading ends when the child exits.
    /// Other ignored signals stay ignored in the child. Restores this process's default for SIGCHLD if it is
    /// ignored, because the system would not keep exit statuses. Throws LaunchError if the program or the
    /// working directory cannot be used, or if a text contains a zero byte or an environment name is empty
    /// or contains "=". After an exception, launch may be called again.
    ///
    /// On Linux, marks all descriptors of this process above 2 to be closed in new programs. On macOS, NSTask
    /// decides about signals, `newSession` has no effect on the child, and text that is not UTF-8 throws
    /// LaunchError.
    void launch(const Setup& setup);

    /// Waits until the child has exited; returns at once if it was waited for before. On macOS the run loop
    /// of the calling thread runs meanwhile, so do not wait in a step of the main run loop.
    void waitUntilExit();

    /// The child's exit status, or 128 + N if signal N ended it.
    std::int32_t terminationStatus() const;

private:
    struct Child; // defined for each system
    /// Starts the child at the path `program`. The caller has checked the texts of `setup`.
    static std::shared_ptr<Child> start(const Setup& setup, const std::string& program);
    static std::int32_t waitFor(const Child& child);

    std::shared_ptr<Child> _child;
    std::optional<std::int32_t> _terminationStatus;
};

} // namespace platform
