#pragma once

#include "platform/files/FileDescriptor.h"
#include "platform/files/UnfinishedFile.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ditto {

/// The archive while it is written: a temporary file beside its final path, to which `commit` renames it.
/// Without `commit`, nothing remains, even if a signal of UnfinishedFile ends the process. Only one object
/// may exist at a time. Operations that fail throw Failure.
class ArchiveFile {
public:
    /// Fails if the name is too long for its folder or if `path` exists and is not a regular file.
    explicit ArchiveFile(std::string path);
    ~ArchiveFile();
    ArchiveFile(const ArchiveFile&) = delete;
    ArchiveFile& operator=(const ArchiveFile&) = delete;

    /// The number of bytes appended so far.
    std::uint64_t size() const { return _writtenSize + _buffer.size(); }
    void append(std::string_view bytes);
    /// Replaces bytes that were appended before.
    void overwrite(std::uint64_t offset, std::string_view bytes);

    /// Replaces the file at the final path in one step. Does not wait until the data is on the disk: the
    /// archive is read at once and can be made again.
    void commit();

private:
    void flush();
    void write(std::uint64_t offset, std::string_view bytes);

    std::string _path;
    std::string _temporaryPath;
    std::optional<platform::UnfinishedFile> _unfinished;
    platform::FileDescriptor _file;
    /// The bytes that follow the first `_writtenSize` bytes of the file.
    std::string _buffer;
    std::uint64_t _writtenSize = 0;
};

} // namespace ditto
