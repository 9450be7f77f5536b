#pragma once

#include "platform/files/FileDescriptor.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace ditto {

/// The archive while it is being written: a temporary file beside its final name, which it gets only when it
/// is whole. Without `commit` nothing is left behind, also when SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM or
/// SIGXCPU ends the process. There is one at a time. All operations throw Failure.
class ArchiveFile {
public:
    /// Refuses a name that is too long for its folder, and something at `path` that is no regular file.
    explicit ArchiveFile(std::string path);
    ~ArchiveFile();
    ArchiveFile(const ArchiveFile&) = delete;
    ArchiveFile& operator=(const ArchiveFile&) = delete;

    /// All bytes appended so far.
    std::uint64_t size() const { return _writtenSize + _buffer.size(); }
    void append(std::string_view bytes);
    /// Replaces bytes that have been appended.
    void overwrite(std::uint64_t offset, std::string_view bytes);

    /// Puts the file in the place of whatever was at its path, in one step. The system writes it to the disk
    /// in its own time: it can be made again, and is read at once.
    void commit();

private:
    void flush();
    void write(std::uint64_t offset, std::string_view bytes);

    std::string _path;
    std::string _temporaryPath;
    platform::FileDescriptor _file;
    /// What stands behind the `_writtenSize` bytes in the file.
    std::string _buffer;
    std::uint64_t _writtenSize = 0;
};

} // namespace ditto
