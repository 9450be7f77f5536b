#include "ditto/ArchiveFile.h"

#include "ditto/Failure.h"
#include "platform/files/FileCalls.h"
#include "platform/foundation/UUID.h"

#include <signal.h>

#include <cerrno>
#include <cstdio>

namespace ditto {
namespace {

constexpr std::size_t bufferSize = std::size_t{64} << 10;

void refuseImpossiblePlace(const std::string& path) {
    struct stat status;
    const bool isTaken = stat(path.c_str(), &status) == 0;
    if (isTaken && !S_ISREG(status.st_mode))
        throw Failure("cannot write " + path + ": it exists and is not a regular file; choose another name");
    // The temporary file has a short name, so without this check only the final rename would fail.
    if (!isTaken && errno == ENAMETOOLONG)
        throw Failure(errno, "write", path);
}

} // namespace

ArchiveFile::ArchiveFile(std::string path) : _path(std::move(path)) {
    refuseImpossiblePlace(_path);
    // A short name: the archive's name may be as long as a name can be.
    _temporaryPath = _path.substr(0, _path.rfind('/') + 1) + ".ditto-" + platform::makeUUIDString();
    // Without the signal, a write beyond the file-size limit fails, and its error is reported.
    ::signal(SIGXFSZ, SIG_IGN);
    _unfinished.emplace(_temporaryPath);
    _file =
        platform::FileDescriptor(::open(_temporaryPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!_file)
        throw Failure(errno, "create", _path);
}

ArchiveFile::~ArchiveFile() {
    if (_file)
        ::unlink(_temporaryPath.c_str());
}

void ArchiveFile::append(std::string_view bytes) {
    if (_buffer.size() + bytes.size() > bufferSize)
        flush();
    if (bytes.size() < bufferSize) {
        _buffer += bytes;
        return;
    }
    write(_writtenSize, bytes);
    _writtenSize += bytes.size();
}

void ArchiveFile::overwrite(std::uint64_t offset, std::string_view bytes) {
    if (offset < _writtenSize)
        flush();
    if (offset < _writtenSize)
        write(offset, bytes);
    else
        _buffer.replace(offset - _writtenSize, bytes.size(), bytes);
}

void ArchiveFile::flush() {
    write(_writtenSize, _buffer);
    _writtenSize += _buffer.size();
    _buffer.clear();
}

void ArchiveFile::write(std::uint64_t offset, std::string_view bytes) {
    if (const int error = platform::pwriteAll(_file, bytes, static_cast<off_t>(offset)); error != 0)
        throw Failure(error, "write", _path);
}

void ArchiveFile::commit() {
    flush();
    const bool isWhole = _file.reset();
    if (isWhole && std::rename(_temporaryPath.c_str(), _path.c_str()) == 0)
        return;
    const int errorNumber = errno;
    ::unlink(_temporaryPath.c_str());
    throw Failure(errorNumber, "write", _path);
}

} // namespace ditto
