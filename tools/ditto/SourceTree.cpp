#include "ditto/SourceTree.h"

#include "ditto/Failure.h"
#include "platform/files/FileCalls.h"

#include <algorithm>
#include <cerrno>
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

struct stat statusOf(int parent, const std::string& name, const std::string& path) {
    struct stat status;
    if (fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        throw Failure(errno, "examine", path);
    return status;
}

std::vector<std::string> sortedNames(const Level& level) {
    std::vector<std::string> names;
    const auto add = [&](const dirent& entry) {
        std::string& name = names.emplace_back(entry.d_name);
        if (entry.d_type == DT_DIR ||
            (entry.d_type == DT_UNKNOWN &&
             S_ISDIR(statusOf(level.folder.get(), name, level.path + name).st_mode)))
            name += '/';
    };
    if (const int error = platform::listFolder(level.folder, add); error != 0)
        throw Failure(error, "list", level.path);
    std::ranges::sort(names, std::ranges::greater());
    return names;
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

/// Opens a file, or a folder for the flag O_DIRECTORY.
FileDescriptor open(const Place& place, struct stat& status, int flag = 0) {
    FileDescriptor opened = platform::openToRead(place.parent, place.name, status, place.followFlag | flag);
    if (!opened)
        throw Failure(errno, "open", place.path);
    return opened;
}

SourceFile openFile(const Place& place) {
    struct stat status;
    FileDescriptor file = open(place, status);
    if (!S_ISREG(status.st_mode))
        throw Failure::changed(place.path);
    SourceFile result = describe(place, status);
    result.descriptor = std::move(file);
    result.size = static_cast<std::uint64_t>(status.st_size);
    return result;
}

/// A file or link in a folder.
SourceFile openLeaf(const Place& place) {
    const struct stat status = statusOf(place.parent, place.name, place.path);
    if (S_ISREG(status.st_mode))
        return openFile(place);
    if (!S_ISLNK(status.st_mode))
        throw Failure(place.path + " is not a folder, regular file or link; remove it from the bundle");
    SourceFile link = describe(place, status);
    auto target = platform::linkTarget(place.parent, place.name);
    if (!target)
        throw Failure(errno, "read link", place.path);
    link.linkTarget = *std::move(target);
    return link;
}

/// The last component, also for ".", ".." and paths that end with "/".
std::string nameOf(const std::string& source) {
    std::string path = source;
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    std::string name = path.substr(path.rfind('/') + 1);
    if (name == "." || name == "..") {
        const std::optional<std::string> absolute = platform::realPath(path);
        if (!absolute)
            throw Failure(errno, "open", source);
        name = absolute->substr(absolute->rfind('/') + 1);
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
        FileDescriptor opened = open(folder, status, O_DIRECTORY);
        levels.push_back({std::move(opened), folder.path, folder.archiveName, {}});
        levels.back().names = sortedNames(levels.back());
        visit(describe(folder, status));
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
