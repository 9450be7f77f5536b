#pragma once

#include "ditto/ArchiveFile.h"

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace ditto {

/// Writes the zip format (PKWARE's APPNOTE.TXT 6.3), with 64-bit records where needed, Unix file types and
/// permissions, and modification times in seconds (UTC). One entry is open at a time. Throws Failure.
class ZipWriter {
public:
    enum class Method : std::uint16_t { stored = 0, deflated = 8 };

    struct Entry {
        /// The name of a folder ends with "/". A name in UTF-8 is marked as such. Other names are written
        /// unchanged without the mark, so that different names stay different.
        std::string name;
        /// As in stat(2).
        mode_t mode = 0;
        /// Seconds since 1970.
        std::int64_t modificationTime = 0;
        /// The size of the content before compression.
        std::uint64_t size = 0;
        Method method = Method::stored;
    };

    explicit ZipWriter(ArchiveFile& file) : _file(file) {}

    void begin(Entry entry);
    void append(std::string_view bytes) { _file.append(bytes); }
    void end(std::uint32_t crc32);

    /// Writes the central directory. Call it once, after the last entry.
    void finish();

private:
    ArchiveFile& _file;
    Entry _entry;
    std::uint64_t _headerOffset = 0;
    std::uint64_t _contentOffset = 0;
    std::string _directory;
    std::uint64_t _entryCount = 0;
};

} // namespace ditto
