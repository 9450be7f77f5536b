#include "ditto/SourceTree.h"

#include "ditto/Failure.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

namespace ditto {
namespace {

using platform::FileDescriptor;

/// An open folder of the walk.
struct Level {
    FileDescriptor folder;
    /// Both end with "/".
    std::string path;
    std::string archiveName;
    /// The entries to visit, in reverse order. Folders end with "/", because they are sorted with it.
    std::vector<std::string> names;
};

struct stat statusOf(const FileDescriptor& file, const std::string& path) {
    struct stat status;
    if (fstat(file.get(), &status) != 0)
        throw Failure(errno, "examine", path);
    return status;
}

bool isFolder(int parent, const std::string& name, const std::string& path) {
    struct stat status;
    if (fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        throw Failure(errno, "examine", path);
    return S_ISDIR(status.st_mode);
}

std::vector<std::string> sortedNames(const Level& level) {
    const int listed = openat(level.folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(listed < 0 ? nullptr : fdopendir(listed), &closedir);
    if (!folder)
        throw Failure(errno, "list", level.path);
    std::vector<std::string> names;
    errno = 0;
    for (const dirent* entry = readdir(folder.get()); entry; entry = readdir(folder.get())) {
        std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        if (entry->d_type == DT_DIR ||
            (entry->d_type == DT_UNKNOWN && isFolder(level.folder.get(), name, level.path + name)))
            name += '/';
        names.push_back(std::move(name));
        errno = 0;
    }
    if (errno != 0)
        throw Failure(errno, "list", level.path);
    std::ranges::sort(names, std::ranges::greater());
    return names;
}

std::string linkTarget(int folder, const std::string& name, const std::string& path) {
    std::string target(256, '\0');
    while (true) {
        const ssize_t length = readlinkat(folder, name.c_str(), target.data(), target.size());
        if (length < 0)
            throw Failure(errno, "read link", path);
        if (static_cast<std::size_t>(length) < target.size()) {
            target.resize(static_cast<std::size_t>(length));
            return target;
        }
        target.resize(target.size() * 2);
    }
}

/// How to open and name one entry: `name` is relative to the folder `parent`.
struct Place {
    int parent;
    std::string name;
    std::string path;
    std::string archiveName;
    /// O_NOFOLLOW; 0 for the path that the user gave.
    int followFlag = O_NOFOLLOW;
};

SourceFile describe(const Place& place, const struct stat& status) {
    return {.path = place.path,
            .archiveName = place.archiveName,
            .mode = status.st_mode,
            .modificationTime = status.st_mtim};
}

Level openFolder(const Place& place) {
    Level level{.folder = FileDescriptor(openat(place.parent, place.name.c_str(),
                                                O_RDONLY | O_DIRECTORY | O_CLOEXEC | place.followFlag)),
                .path = place.path,
                .archiveName = place.archiveName,
                .names = {}};
    if (!level.folder)
        throw Failure(errno, "open", place.path);
    level.names = sortedNames(level);
    return level;
}

SourceFile openFile(const Place& place) {
    // Without O_NONBLOCK, opening a pipe that replaced the file would block.
    FileDescriptor file(openat(place.parent, place.name.c_str(),
                               O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | place.followFlag));
    if (!file)
        throw Failure(errno, "open", place.path);
    const struct stat status = statusOf(file, place.path);
    if (!S_ISREG(status.st_mode))
        throw Failure::changed(place.path);
    SourceFile result = describe(place, status);
    result.descriptor = std::move(file);
    result.size = static_cast<std::uint64_t>(status.st_size);
    return result;
}

/// A file or link in a folder.
SourceFile openLeaf(const Place& place) {
    struct stat status;
    if (fstatat(place.parent, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        throw Failure(errno, "examine", place.path);
    if (S_ISREG(status.st_mode))
        return openFile(place);
    if (!S_ISLNK(status.st_mode))
        throw Failure(place.path + " is not a folder, regular file or link; remove it from the bundle");
    SourceFile link = describe(place, status);
    link.linkTarget = linkTarget(place.parent, place.name, place.path);
    return link;
}

/// The last component, also for ".", ".." and paths that end with "/".
std::string nameOf(const std::string& source) {
    std::string path = source;
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    std::string name = path.substr(path.rfind('/') + 1);
    if (name == "." || name == "..") {
        const std::unique_ptr<char, decltype(&free)> absolute(realpath(path.c_str(), nullptr), &free);
        if (!absolute)
            throw Failure(errno, "open", source);
        name = absolute.get();
        name.erase(0, name.rfind('/') + 1);
    }
    if (name.empty())
        throw Failure("cannot archive \"" + source + "\": it has no name; archive a folder inside it");
    return name;
}

} // namespace

void walkTree(const std::string& source, const std::function<void(SourceFile)>& visit) {
    Place place{AT_FDCWD, source, source, nameOf(source), 0};
    struct stat status;
    if (stat(source.c_str(), &status) != 0)
        throw Failure(errno, "open", source);
    if (S_ISREG(status.st_mode))
        return visit(openFile(place));
    if (!S_ISDIR(status.st_mode))
        throw Failure("cannot archive " + source + ": it is not a folder or a regular file");
    if (!place.path.ends_with('/'))
        place.path += '/';
    place.archiveName += '/';

    std::vector<Level> levels;
    const auto enter = [&](const Place& folder) {
        levels.push_back(openFolder(folder));
        visit(describe(folder, statusOf(levels.back().folder, folder.path)));
    };
    enter(place);
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.names.empty()) {
            levels.pop_back();
            continue;
        }
        std::string name = std::move(level.names.back());
        level.names.pop_back();
        Place next{level.folder.get(), name, level.path + name, level.archiveName + name};
        if (!name.ends_with('/')) {
            visit(openLeaf(next));
        } else {
            // With the "/" at its end, a link would be followed.
            next.name.pop_back();
            enter(next);
        }
    }
}

} // namespace ditto
