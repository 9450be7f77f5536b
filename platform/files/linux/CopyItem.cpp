#include "platform/files/CopyItem.h"

#include "platform/files/FileCalls.h"
#include "platform/foundation/Path.h"

#include <limits.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
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
    Outcome copy(const Place& from, const Place& to) {
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

private:
    Outcome copyLink(const Source& from, const Place& to) {
        const std::optional<std::string> target = linkTarget(from.folder, from.name);
        if (!target)
            return posixError(errno, "copy", from.path);
        if (symlinkat(target->c_str(), to.folder, to.name.c_str()) != 0 ||
            utimensat(to.folder, to.name.c_str(), timesOf(from.status).data(), AT_SYMLINK_NOFOLLOW) != 0)
            return posixError(errno, "create", to.path);
        return success;
    }

    Outcome copyAttributes(const Source& from, const FileDescriptor& to, const Place& toPlace) {
        if (fchmod(to.get(), from.status.st_mode & keptModeBits) != 0 ||
            futimens(to.get(), timesOf(from.status).data()) != 0)
            return posixError(errno, "set permissions and times of", toPlace.path);
        return success;
    }

    Outcome copyFolder(const Source& from, const Place& to) {
        struct stat status;
        const FileDescriptor fromFolder =
            openToRead(from.folder, from.name, status, O_DIRECTORY | O_NOFOLLOW);
        if (!fromFolder)
            return posixError(errno, "open", from.path);
        // The copies would be copied again, until a path is too long.
        if (_destination && status.st_dev == _destination->st_dev && status.st_ino == _destination->st_ino)
            return posixError(EINVAL, "copy a folder into itself:", from.path);

        // The folder must be writable until its contents are copied.
        if (mkdirat(to.folder, to.name.c_str(), 0700) != 0)
            return posixError(errno, "create folder", to.path);
        const FileDescriptor toFolder = openToRead(to.folder, to.name, status, O_DIRECTORY | O_NOFOLLOW);
        if (!toFolder)
            return posixError(errno, "open", to.path);
        if (!_destination)
            _destination = status;
        std::vector<std::string> names;
        const auto add = [&](const dirent& entry) {
            names.emplace_back(entry.d_name);
        };
        if (const int error = listFolder(fromFolder, add); error != 0)
            return posixError(error, "list folder", from.path);
        for (const std::string& name : names)
            if (Outcome copied = copy({fromFolder.get(), name, from.path + "/" + name},
                                      {toFolder.get(), name, to.path + "/" + name});
                !copied)
                return copied;
        return copyAttributes(from, toFolder, to);
    }

    Outcome copyFile(const Source& from, const Place& to) {
        Source opened = from;
        const FileDescriptor input = openToRead(from.folder, from.name, opened.status, O_NOFOLLOW);
        if (!input)
            return posixError(errno, "open", from.path);
        // Another process may have replaced the file since `copy` looked at it.
        if (!S_ISREG(opened.status.st_mode))
            return posixError(ENOTSUP, "copy", from.path);
        FileDescriptor output(
            openat(to.folder, to.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!output)
            return posixError(errno, "create", to.path);

        // Some file systems can share the blocks of both files, which takes no time and no space.
        if (ioctl(output.get(), FICLONE, input.get()) != 0)
            if (const int error = copyContents(input, output, opened.status.st_size); error != 0)
                return posixError(error, "copy", from.path + " to " + to.path);
        if (Outcome set = copyAttributes(opened, output, to); !set)
            return set;
        return output.reset() ? Outcome(success) : posixError(errno, "write", to.path);
    }

    int copyContents(const FileDescriptor& from, const FileDescriptor& to, off_t size) {
        for (off_t position = 0; position < size;) {
            // A file system without SEEK_DATA reports the whole file as data.
            const off_t data = lseek(from.get(), position, SEEK_DATA);
            if (data < 0 && errno == ENXIO)
                break; // only a hole is left
            const off_t hole = data < 0 ? -1 : lseek(from.get(), data, SEEK_HOLE);
            const Range range = hole < 0 ? Range{position, size} : Range{data, std::min(hole, size)};
            if (const int error = copyRange(from, to, range); error != 0)
                return error;
            position = range.end;
        }
        // Adds a hole at the end.
        return ftruncate(to.get(), size) == 0 ? 0 : errno;
    }

    int copyRange(const FileDescriptor& from, const FileDescriptor& to, Range range) {
        off_t output = range.start;
        while (_kernelCopies && range.start < range.end) {
            const ssize_t copied = copy_file_range(from.get(), &range.start, to.get(), &output,
                                                   static_cast<std::size_t>(range.end - range.start), 0);
            if (copied == 0)
                return EIO; // the file was truncated while it was copied
            if (copied > 0 || errno == EINTR)
                continue;
            // These errors mean that the kernel or a file system cannot copy.
            if (errno != EXDEV && errno != EINVAL && errno != EOPNOTSUPP && errno != ENOSYS && errno != EPERM)
                return errno;
            _kernelCopies = false;
        }
        return range.start < range.end ? copyRangeThroughMemory(from, to, range) : 0;
    }

    int copyRangeThroughMemory(const FileDescriptor& from, const FileDescriptor& to, Range range) {
        _buffer.resize(bufferSize);
        while (range.start < range.end) {
            const auto wanted =
                std::min<std::size_t>(bufferSize, static_cast<std::size_t>(range.end - range.start));
            const ssize_t got = preadAll(from, _buffer.data(), wanted, range.start);
            if (got <= 0)
                return got < 0 ? errno : EIO;
            if (const int error = pwriteAll(to, {_buffer.data(), static_cast<std::size_t>(got)}, range.start);
                error != 0)
                return error;
            range.start += got;
        }
        return 0;
    }

    std::optional<struct stat> _destination; // the destination's top folder
    bool _kernelCopies = true;
    std::vector<char> _buffer;
};

} // namespace

Outcome copyItem(const CopyPaths& paths) {
    for (const std::string& path : {paths.source, paths.destination})
        if (path.empty() || hasZeroByte(path))
            return posixError(path.empty() ? ENOENT : EINVAL, "copy", path);
    return ItemCopier().copy({AT_FDCWD, paths.source, paths.source},
                             {AT_FDCWD, paths.destination, paths.destination});
}

} // namespace platform
