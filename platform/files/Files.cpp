#include "platform/files/Files.h"

#include "platform/files/FileCalls.h"
#include "platform/foundation/Path.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace platform {
namespace {

std::optional<struct stat> statusOf(const std::string& path) {
    struct stat status;
    if (hasZeroByte(path) || stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return status;
}

Result<FileDescriptor> openRegularFile(const std::string& path, struct stat& status) {
    FileDescriptor file = hasZeroByte(path) ? FileDescriptor() : openToRead(AT_FDCWD, path, status);
    if (!file)
        return posixError(hasZeroByte(path) ? EINVAL : errno, "open", path);
    if (!S_ISREG(status.st_mode))
        return posixError(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, "read", path);
    return file;
}

} // namespace

bool fileExists(const std::string& path) {
    return statusOf(path).has_value();
}

bool isDirectory(const std::string& path) {
    const auto status = statusOf(path);
    return status && S_ISDIR(status->st_mode);
}

Outcome createDirectories(const std::string& path) {
    if (hasZeroByte(path))
        return posixError(EINVAL, "create folder", path);
    for (std::size_t end = 0; end != path.size();) {
        end = std::min(path.find('/', end + 1), path.size());
        const std::string folder = path.substr(0, end);
        // Another process may create the same folder now, so an existing one is not an error.
        const int error = mkdir(folder.c_str(), 0777) == 0 ? 0 : errno;
        if (error != 0 && !isDirectory(folder))
            return posixError(error == EEXIST ? ENOTDIR : error, "create folder", folder);
    }
    return path.empty() ? Outcome(posixError(ENOENT, "create folder", path)) : Outcome(success);
}

Result<std::vector<std::string>> namesInDirectory(const std::string& path) {
    if (hasZeroByte(path))
        return posixError(EINVAL, "list folder", path);
    const FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::vector<std::string> names;
    const auto add = [&](const dirent& entry) {
        names.emplace_back(entry.d_name);
    };
    const int error = folder ? listFolder(folder, add) : errno;
    return error == 0 ? Result(std::move(names)) : posixError(error, "list folder", path);
}

Result<Data> readFile(const std::string& path, std::uint64_t sizeLimit) {
    struct stat status;
    const auto file = openRegularFile(path, status);
    if (!file)
        return file.error();
    if (static_cast<std::uint64_t>(status.st_size) > sizeLimit)
        return posixError(EFBIG, "read", path);

    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t size = preadAll(*file, bytes.data(), bytes.size(), 0);
    if (size < 0)
        return posixError(errno, "read", path);
    // Fewer bytes are read if the file was truncated since; a longer file is read to its former size.
    bytes.resize(static_cast<std::size_t>(size));
    return Data(std::move(bytes));
}

Result<Data> mapFile(const std::string& path) {
    struct stat status;
    const auto file = openRegularFile(path, status);
    if (!file)
        return file.error();
    const auto size = static_cast<std::size_t>(status.st_size);
    void* const mapping = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file->get(), 0);
    if (mapping == MAP_FAILED)
        return readFile(path);
    const std::shared_ptr<void> owner(mapping, [size](void* memory) { ::munmap(memory, size); });
    return Data(owner, {static_cast<const char*>(mapping), size});
}

Outcome removeFile(const std::string& path) {
    if (hasZeroByte(path) || ::unlink(path.c_str()) != 0)
        return posixError(hasZeroByte(path) ? EINVAL : errno, "delete", path);
    return success;
}

std::string resolveSymbolicLinks(const std::string& path) {
    if (!path.starts_with('/') || hasZeroByte(path))
        return path;
    std::string result = realPath(path).value_or(path);
    if (path.ends_with('/') && !result.ends_with('/'))
        result += '/';
    return result;
}

} // namespace platform
