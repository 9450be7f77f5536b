#include "platform/files/AtomicWrite.h"

#include "platform/files/FileCalls.h"
#include "platform/foundation/Path.h"
#include "platform/foundation/UUID.h"

#include <limits.h>

#include <cerrno>

namespace platform {
namespace {

/// A file, named relative to its open folder: the whole path of the temporary file may exceed the system's
/// limit.
struct FileInFolder {
    FileDescriptor folder;
    std::string name;
};

/// The file at `path`. Follows all links, because the file that they lead to is replaced, not a link.
Result<FileInFolder> openFolderOf(const std::string& path) {
    constexpr int mostLinks = 40; // the kernel's limit
    FileInFolder file;
    std::string rest = path;
    for (int links = 0; links <= mostLinks; ++links) {
        const std::size_t nameStart = rest.rfind('/') + 1;
        const std::string folder = nameStart == 0 ? "." : rest.substr(0, nameStart);
        const int start = file.folder ? file.folder.get() : AT_FDCWD;
        file.folder = openFolder(start, folder.c_str());
        if (!file.folder)
            return posixError(errno, "write", path);
        file.name = rest.substr(nameStart);
        const std::optional<std::string> target = linkTarget(file.folder.get(), file.name);
        if (!target)
            return Result<FileInFolder>(std::move(file));
        rest = *target;
    }
    return posixError(ELOOP, "write", path);
}

/// Writes `bytes` to `file`, the new file `temporary` in the folder of `destination`, and renames it to
/// `destination.name`. Returns 0 or the number of the error.
int writeAndRename(FileDescriptor file, const std::string& temporary, const FileInFolder& destination,
                   std::string_view bytes) {
    const int folder = destination.folder.get();
    if (const int error = pwriteAll(file, bytes, 0); error != 0)
        return error;
    const bool isReplaced = ::fsync(file.get()) == 0 && file.reset() &&
                            ::renameat(folder, temporary.c_str(), folder, destination.name.c_str()) == 0;
    return isReplaced ? 0 : errno;
}

} // namespace

Outcome writeFileAtomically(const std::string& path, std::string_view bytes, unsigned permissions) {
    const auto failed = [&](int errorNumber) {
        return posixError(errorNumber, "write", path);
    };
    if (path.empty() || hasZeroByte(path))
        return failed(path.empty() ? ENOENT : EINVAL);
    if (path.size() >= PATH_MAX) // such a file could be written, but nobody could open it
        return failed(ENAMETOOLONG);
    const Result<FileInFolder> destination = openFolderOf(path);
    if (!destination)
        return destination.error();
    const int folder = destination->folder.get();
    struct stat status = {};
    const bool exists = ::fstatat(folder, destination->name.c_str(), &status, 0) == 0;
    if (destination->name.empty() || S_ISDIR(status.st_mode))
        return failed(EISDIR);
    if (exists && !S_ISREG(status.st_mode))
        return failed(EINVAL);

    const std::string temporary = "." + makeUUIDString() + ".tmp";
    FileDescriptor file(
        ::openat(folder, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions));
    if (!file)
        return posixError(errno, "create a file beside", path);
    // fchmod sets the exact mode; the mode given to open is subject to the umask.
    const bool keepsMode = !exists || ::fchmod(file.get(), status.st_mode & 0777) == 0;
    const int error = keepsMode ? writeAndRename(std::move(file), temporary, *destination, bytes) : errno;
    if (error == 0)
        return success;
    ::unlinkat(folder, temporary.c_str(), 0);
    return failed(error);
}

} // namespace platform
