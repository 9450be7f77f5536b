#include "platform/files/FileCalls.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

namespace platform {

FileDescriptor openToRead(int folder, const std::string& name, struct stat& status, int flags) {
    // Without O_NONBLOCK, opening a pipe would wait for a writer.
    FileDescriptor file(::openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | flags));
    return file && ::fstat(file.get(), &status) == 0 ? std::move(file) : FileDescriptor();
}

int listFolder(const FileDescriptor& folder, const std::function<void(const dirent&)>& visit) {
    FileDescriptor listed(::fcntl(folder.get(), F_DUPFD_CLOEXEC, 0));
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(listed ? ::fdopendir(listed.get()) : nullptr,
                                                      &::closedir);
    if (!entries)
        return errno;
    listed.release(); // closedir closes it
    while (true) {
        errno = 0;
        const dirent* entry = ::readdir(entries.get());
        if (!entry)
            return errno;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            visit(*entry);
    }
}

std::optional<std::string> linkTarget(int folder, const std::string& name) {
    for (std::string target(256, '\0');; target.resize(target.size() * 2)) {
        const ssize_t length = ::readlinkat(folder, name.c_str(), target.data(), target.size());
        if (length < 0)
            return std::nullopt;
        if (static_cast<std::size_t>(length) < target.size())
            return target.substr(0, static_cast<std::size_t>(length));
    }
}

std::optional<std::string> realPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    return resolved ? std::optional<std::string>(resolved.get()) : std::nullopt;
}

ssize_t preadAll(const FileDescriptor& file, void* buffer, std::size_t size, off_t offset) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got = ::pread(file.get(), static_cast<char*>(buffer) + done, size - done,
                                    offset + static_cast<off_t>(done));
        if (got < 0 && errno != EINTR)
            return -1;
        if (got == 0)
            break;
        done += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    }
    return static_cast<ssize_t>(done);
}

int pwriteAll(const FileDescriptor& file, std::string_view bytes, off_t offset) {
    while (!bytes.empty()) {
        const ssize_t written = ::pwrite(file.get(), bytes.data(), bytes.size(), offset);
        if (written < 0 && errno != EINTR)
            return errno;
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
            offset += written;
        }
    }
    return 0;
}

} // namespace platform
