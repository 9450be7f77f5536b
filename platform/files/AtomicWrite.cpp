#include "platform/files/AtomicWrite.h"

#include "platform/files/FileCalls.h"
#include "platform/foundation/Path.h"
#include "platform/foundation/UUID.h"

#include <limits.h>

#include <cerrno>

namespace platform {
namespace {

/// A file, identified by its open folder and its name, because the path of the temporary file may exceed the
/// system's limit.
struct Place {
    FileDescriptor folder;
    std::string name;
};

/// The file at `path`, after following all links.
Result<Place> placeOf(const std::string& path) {
    constexpr int mostLinks = 40; // the kernel's limit
    Place place;
    std::string rest = path;
    for (int links = 0; links <= mostLinks; ++links) {
        const std::size_t nameStart = rest.rfind('/') + 1;
        const std::string folder = nameStart == 0 ? "." : rest.substr(0, nameStart);
        const int start = place.folder ? place.folder.get() : AT_FDCWD;
        place.folder = openFolder(start, folder.c_str());
        if (!place.folder)
            return posixError(errno, "write", path);
        place.name = rest.substr(nameStart);
        const std::optional<std::string> target = linkTarget(place.folder.get(), place.name);
        if (!target)
            return Result<Place>(std::move(place));
        rest = *target;
    }
    return posixError(ELOOP, "write", path);
}

/// Writes `bytes` to `file`, which has the name `temporary` in the folder of `place`, and renames it to
/// `place.name`. `path` is for the error's description.
Outcome replace(const Place& place, FileDescriptor file, const std::string& temporary, std::string_view bytes,
                const std::string& path) {
    if (const int error = writeAll(file, bytes, 0); error != 0)
        return posixError(error, "write", path);
    const int folder = place.folder.get();
    if (::fsync(file.get()) != 0 || !file.reset() ||
        ::renameat(folder, temporary.c_str(), folder, place.name.c_str()) != 0)
        return posixError(errno, "write", path);
    return success;
}

} // namespace

Outcome writeFileAtomically(const std::string& path, std::string_view bytes, unsigned permissions) {
    if (path.empty() || hasZeroByte(path))
        return posixError(path.empty() ? ENOENT : EINVAL, "write", path);
    if (path.size() >= PATH_MAX) // such a file could be written, but nobody could open it
        return posixError(ENAMETOOLONG, "write", path);
    const Result<Place> place = placeOf(path);
    if (!place)
        return place.error();
    const int folder = place->folder.get();
    struct stat status;
    const bool isThere = ::fstatat(folder, place->name.c_str(), &status, 0) == 0;
    if (place->name.empty() || (isThere && !S_ISREG(status.st_mode)))
        return posixError(place->name.empty() || S_ISDIR(status.st_mode) ? EISDIR : EINVAL, "write", path);

    const std::string temporary = "." + makeUUIDString() + ".tmp";
    FileDescriptor file(
        ::openat(folder, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions));
    if (!file)
        return posixError(errno, "create a file beside", path);
    // fchmod sets the exact mode; the mode given to open is subject to the umask.
    Outcome outcome = isThere && ::fchmod(file.get(), status.st_mode & 0777) != 0
                          ? posixError(errno, "write", path)
                          : replace(*place, std::move(file), temporary, bytes, path);
    if (!outcome)
        ::unlinkat(folder, temporary.c_str(), 0);
    return outcome;
}

} // namespace platform
