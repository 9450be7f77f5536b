#include "ditto/ArchiveFile.h"

#include "ditto/Failure.h"
#include "platform/files/FileCalls.h"
#include "platform/foundation/UUID.h"

#include <signal.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

namespace ditto {
namespace {

constexpr std::size_t bufferSize = std::size_t{64} << 10;

/// The file that the signal handler deletes. Never destroyed, because the handler may run at any time.
std::atomic<const char*> unfinishedFile = nullptr;
static_assert(std::atomic<const char*>::is_always_lock_free);

extern "C" void deleteUnfinishedFile(int signalNumber) {
    if (const char* path = unfinishedFile)
        ::unlink(path);
    // Not earlier: a second signal on another thread must not end the process before the file is deleted.
    ::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
}

void catchSignals() {
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGXCPU}) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = &deleteUnfinishedFile;
        sigaction(number, &action, nullptr);
    }
    // The failed write reports the file-size limit.
    ::signal(SIGXFSZ, SIG_IGN);
}

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
    // A short name, so that it fits where the archive's name fits.
    _temporaryPath = _path.substr(0, _path.rfind('/') + 1) + ".ditto-" + platform::makeUUIDString();
    catchSignals();
    unfinishedFile = _temporaryPath.c_str();
    _file =
        platform::FileDescriptor(::open(_temporaryPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!_file) {
        unfinishedFile = nullptr;
        throw Failure(errno, "create", _path);
    }
}

ArchiveFile::~ArchiveFile() {
    if (_file)
        ::unlink(_temporaryPath.c_str());
    unfinishedFile = nullptr;
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
    if (const int error = platform::writeAll(_file, bytes, static_cast<off_t>(offset)); error != 0)
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
