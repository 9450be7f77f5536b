#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace platform {

/// Owns a POSIX file descriptor and closes it; -1 stands for none.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : _descriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : _descriptor(std::exchange(other._descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(_descriptor, other._descriptor);
        return *this;
    }
    ~FileDescriptor() { reset(); }

    explicit operator bool() const { return _descriptor >= 0; }
    int get() const { return _descriptor; }

    /// Closes now. False when the system reports that earlier writes were lost (close(2)).
    bool reset() { return _descriptor < 0 || ::close(std::exchange(_descriptor, -1)) == 0; }

private:
    int _descriptor = -1;
};

/// The descriptor, moved when it has the number of a standard stream, which the process may have been started
/// without: that number must stay free, or would be overwritten when the stream is put in place.
inline FileDescriptor aboveStandardStreams(int descriptor) {
    FileDescriptor original(descriptor);
    if (descriptor > STDERR_FILENO)
        return original;
    return FileDescriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

} // namespace platform
