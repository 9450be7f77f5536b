#include "platform/files/CopyItem.h"

#include "platform/files/FileDescriptor.h"
#include "platform/foundation/Path.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <optional>
#include <vector>

namespace platform {
namespace {

constexpr std::size_t bufferSize = std::size_t{256} * 1024;
constexpr mode_t keptModeBits = 01777;

/// A name in an open folder. Renaming or replacing the folders above it has no effect on it.
struct Place {
    int folder;
    std::string name;
    std::string path; // for messages
};

struct Source : Place {
    struct stat status = {};
};

struct Range {
    off_t start;
    off_t end;
};

std::array<timespec, 2> timesOf(const struct stat& status) {
    return {status.st_atim, status.st_mtim};
}

class ItemCopier {
public:
    Outcome copy(const Place& from, const Place& to);

private:
    Outcome copyLink(const Source& from, const Place& to);
    Outcome copyFolder(const Source& from, const Place& to);
    Outcome copyFolderContents(const Source& from, DIR* fromFolder, const Place& to, int toFolder);
    Outcome copyFile(const Source& from, const Place& to);
    int copyContents(const FileDescriptor& from, const FileDescriptor& to, off_t size);
    int copyRange(const FileDescriptor& from, const FileDescriptor& to, Range range);
    int copyRangeThroughMemory(const FileDescriptor& from, const FileDescriptor& to, Range range);
    Outcome copyAttributes(const Source& from, const FileDescriptor& to, const Place& toPlace);

    std::optional<struct stat> _destination; // the destination's top folder
    bool _kernelCopies = true;
    std::vector<char> _buffer;
};

Outcome ItemCopier::copy(const Place& from, const Place& to) {
    // A longer path could not be opened. The check also limits the recursion.
    if (to.path.size() >= PATH_MAX)
        return posixError(ENAMETOOLONG, "create", to.path);
    Source source{from};
    if (fstatat(from.folder, from.name.c_str(), &source.status, AT_SYMLINK_NOFOLLOW) != 0)
        return posixError(errno, "copy", from.path);
    switch (source.status.st_mode & S_IFMT) {
    case S_IFLNK:
        return copyLink(source, to);
    case S_IFDIR:
        return copyFolder(source, to);
    case S_IFREG:
        return copyFile(source, to);
    default:
        return posixError(ENOTSUP, "copy", from.path);
    }
}

Outcome ItemCopier::copyLink(const Source& from, const Place& to) {
    // Not on the stack, because copyFile is called in a recursion.
    std::string target(PATH_MAX, '\0');
    const ssize_t size = readlinkat(from.folder, from.name.c_str(), target.data(), target.size());
    if (size < 0)
        return posixError(errno, "copy", from.path);
    target.resize(static_cast<std::size_t>(size));
    if (symlinkat(target.c_str(), to.folder, to.name.c_str()) != 0 ||
        utimensat(to.folder, to.name.c_str(), timesOf(from.status).data(), AT_SYMLINK_NOFOLLOW) != 0)
        return posixError(errno, "create", to.path);
    return success;
}

Outcome ItemCopier::copyAttributes(const Source& from, const FileDescriptor& to, const Place& toPlace) {
    if (fchmod(to.get(), from.status.st_mode & keptModeBits) != 0 ||
        futimens(to.get(), timesOf(from.status).data()) != 0)
        return posixError(errno, "set permissions and times of", toPlace.path);
    return success;
}

Outcome ItemCopier::copyFolder(const Source& from, const Place& to) {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    const int opened = openat(from.folder, from.name.c_str(), flags);
    const std::unique_ptr<DIR, int (*)(DIR*)> fromFolder(opened < 0 ? nullptr : fdopendir(opened), &closedir);
    if (!fromFolder)
        return posixError(errno, "open", from.path);
    struct stat status;
    if (fstat(dirfd(fromFolder.get()), &status) != 0)
        return posixError(errno, "open", from.path);
    if (_destination && status.st_dev == _destination->st_dev && status.st_ino == _destination->st_ino)
        return posixError(EINVAL, "copy a folder into itself:", from.path);

    // The folder must be writable until its contents are copied.
    if (mkdirat(to.folder, to.name.c_str(), 0700) != 0)
        return posixError(errno, "create folder", to.path);
    const FileDescriptor toFolder(openat(to.folder, to.name.c_str(), flags));
    if (!toFolder || (!_destination && fstat(toFolder.get(), &_destination.emplace()) != 0))
        return posixError(errno, "open", to.path);
    if (Outcome copied = copyFolderContents(from, fromFolder.get(), to, toFolder.get()); !copied)
        return copied;
    return copyAttributes(from, toFolder, to);
}

Outcome ItemCopier::copyFolderContents(const Source& from, DIR* fromFolder, const Place& to, int toFolder) {
    while (true) {
        errno = 0;
        const dirent* entry = readdir(fromFolder);
        if (!entry)
            return errno == 0 ? Outcome(success) : posixError(errno, "list folder", from.path);
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        Outcome copied =
            copy({dirfd(fromFolder), name, from.path + "/" + name}, {toFolder, name, to.path + "/" + name});
        if (!copied)
            return copied;
    }
}

Outcome ItemCopier::copyFile(const Source& from, const Place& to) {
    Source opened = from;
    // O_NONBLOCK: a pipe that replaced the file meanwhile must not block.
    const FileDescriptor input(
        openat(from.folder, from.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!input || fstat(input.get(), &opened.status) != 0)
        return posixError(errno, "open", from.path);
    if (!S_ISREG(opened.status.st_mode))
        return posixError(ENOTSUP, "copy", from.path);
    FileDescriptor output(
        openat(to.folder, to.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!output)
        return posixError(errno, "create", to.path);

    if (ioctl(output.get(), FICLONE, input.get()) != 0)
        if (const int error = copyContents(input, output, opened.status.st_size); error != 0)
            return posixError(error, "copy", from.path + " to " + to.path);
    if (Outcome set = copyAttributes(opened, output, to); !set)
        return set;
    return output.reset() ? Outcome(success) : posixError(errno, "write", to.path);
}

int ItemCopier::copyContents(const FileDescriptor& from, const FileDescriptor& to, off_t size) {
    for (off_t position = 0; position < size;) {
        // A file system without SEEK_DATA reports the whole file as data.
        const off_t data = lseek(from.get(), position, SEEK_DATA);
        if (data < 0 && errno == ENXIO)
            break;
        const off_t hole = data < 0 ? -1 : lseek(from.get(), data, SEEK_HOLE);
        const Range range = hole < 0 ? Range{position, size} : Range{data, std::min(hole, size)};
        if (const int error = copyRange(from, to, range); error != 0)
            return error;
        position = range.end;
    }
    return ftruncate(to.get(), size) == 0 ? 0 : errno;
}

int ItemCopier::copyRange(const FileDescriptor& from, const FileDescriptor& to, Range range) {
    off_t output = range.start;
    while (_kernelCopies && range.start < range.end) {
        const ssize_t copied = copy_file_range(from.get(), &range.start, to.get(), &output,
                                               static_cast<std::size_t>(range.end - range.start), 0);
        if (copied == 0)
            return EIO; // the file was truncated while it was copied
        if (copied > 0 || errno == EINTR)
            continue;
        if (errno != EXDEV && errno != EINVAL && errno != EOPNOTSUPP && errno != ENOSYS && errno != EPERM)
            return errno;
        _kernelCopies = false;
    }
    return range.start < range.end ? copyRangeThroughMemory(from, to, range) : 0;
}

int ItemCopier::copyRangeThroughMemory(const FileDescriptor& from, const FileDescriptor& to, Range range) {
    _buffer.resize(bufferSize);
    while (range.start < range.end) {
        const auto wanted =
            std::min<std::size_t>(bufferSize, static_cast<std::size_t>(range.end - range.start));
        const ssize_t got = pread(from.get(), _buffer.data(), wanted, range.start);
        if (got == 0)
            return EIO;
        for (ssize_t done = 0; done < got;) {
            const ssize_t written = pwrite(to.get(), _buffer.data() + done,
                                           static_cast<std::size_t>(got - done), range.start + done);
            if (written < 0 && errno != EINTR)
                return errno;
            done += std::max<ssize_t>(written, 0);
        }
        if (got < 0 && errno != EINTR)
            return errno;
        range.start += std::max<ssize_t>(got, 0);
    }
    return 0;
}

} // namespace

Outcome copyItem(const CopyPaths& paths) {
    for (const std::string& path : {paths.source, paths.destination})
        if (path.empty() || hasZeroByte(path))
            return posixError(path.empty() ? ENOENT : EINVAL, "copy", path);
    return ItemCopier().copy({AT_FDCWD, paths.source, paths.source},
                             {AT_FDCWD, paths.destination, paths.destination});
}

} // namespace platform
