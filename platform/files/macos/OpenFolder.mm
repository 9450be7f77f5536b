#include "platform/files/FileDescriptor.h"

namespace platform {

FileDescriptor openFolder(int start, const char* path) {
    return FileDescriptor(::openat(start, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

} // namespace platform
