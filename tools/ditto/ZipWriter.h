#pragma once

#include "ditto/ArchiveFile.h"

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace ditto {

/// Writes the zip format (PKWARE's APPNOTE.TXT 6.3), with its 64-bit records where a number needs them, Unix
/// kinds and permissions, and times to the second in UTC. One entry is open at a time. Throws Failure.
class ZipWriter {
public:
    enum class Method : std::uint16_t { stored = 0, deflated = 8 };

    struct Entry {
        /// A folder's ends in "/". Names that are UTF-8 are marked so; others are written byte for byte
        /// without the mark, so that no two become one.
        std::string name;
        /// As stat(2) has it.
        mode_t mode = 0;
        /// Seconds since 1970.
        std::int64_t modificationTime = 0;
        /// Of the content, before compression.
        std::uint64_t size = 0;
        Method method = Method::stored;
    };

    explicit ZipWriter(ArchiveFile& file) : _file(file) {}

    void begin(Entry entry);
    void append(std::string_view bytes) { _file.append(bytes); }
    void end(std::uint32_t crc32);

    /// Behind the last entry.
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
