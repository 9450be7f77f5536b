#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform {

/// Owns a POSIX file descriptor and closes it. -1 means no descriptor.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : _descriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : _descriptor(std::exchange(other._descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(_descriptor, other._descriptor);
        return *this;
    }
    /// Keeps errno, which the caller may report.
    ~FileDescriptor() {
        const int errorNumber = errno;
        reset();
        errno = errorNumber;
    }

    explicit operator bool() const { return _descriptor >= 0; }
    int get() const { return _descriptor; }

    /// Gives up the descriptor without closing it.
    int release() { return std::exchange(_descriptor, -1); }
    /// Closes the descriptor now. False if the system reports that earlier writes failed (close(2)).
    bool reset() { return _descriptor < 0 || ::close(std::exchange(_descriptor, -1)) == 0; }

private:
    int _descriptor = -1;
};

/// Opens the folder at `path`, relative to the open folder `start`, for use with openat(2) and similar calls.
/// On failure returns no descriptor and sets errno. On macOS the folder must be readable.
FileDescriptor openFolder(int start, const char* path);

/// Returns the descriptor, duplicated if it has the number of a standard stream. A process may be started
/// without these streams. A pipe with such a number would be overwritten when the streams of a child are set
/// up.
inline FileDescriptor aboveStandardStreams(int descriptor) {
    FileDescriptor original(descriptor);
    if (descriptor > STDERR_FILENO)
        return original;
    return FileDescriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

} // namespace platform
