#include "ditto/ZipWriter.h"

#include "ditto/Failure.h"
#include "platform/foundation/UTF8.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <limits>

namespace ditto {
namespace {

constexpr std::uint64_t most16 = 0xFFFF;
constexpr std::uint64_t most32 = 0xFFFFFFFF;
constexpr std::uint64_t madeByUnix = 3 << 8;
/// The version of the format that a reader must support, times ten.
constexpr std::uint64_t versionForFolders = 20;
constexpr std::uint64_t versionForZip64 = 45;
constexpr std::uint64_t nameIsUTF8 = 1 << 11;

/// The offset of the checksum and both sizes in a local header.
constexpr std::uint64_t checksumOffset = 14;
constexpr std::uint64_t localHeaderSize = 30;
constexpr std::uint64_t extraHeaderSize = 4;

/// Appends `value` as `size` bytes, little-endian.
void put(std::string& record, unsigned size, std::uint64_t value) {
    for (unsigned i = 0; i < size; ++i)
        record += static_cast<char>(value >> (8 * i) & 0xFF);
}

/// Decided before the content is compressed, because the header must reserve room for 64-bit sizes.
/// Compressed content can be slightly larger than `size`; the margin is much larger than that.
bool needsZip64(const ZipWriter::Entry& entry) {
    return entry.size > most32 - (most32 >> 4);
}

std::uint64_t versionFor(const ZipWriter::Entry& entry) {
    return needsZip64(entry) ? versionForZip64 : versionForFolders;
}

std::uint64_t flagsFor(const ZipWriter::Entry& entry) {
    const bool isASCII =
        std::ranges::all_of(entry.name, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    return !isASCII && platform::decodeUTF8(entry.name) ? nameIsUTF8 : 0;
}

/// MS-DOS time and date in one number. The format covers 1980 to 2107.
std::uint64_t dosTime(std::int64_t time) {
    using namespace std::chrono;
    const sys_seconds earliest = sys_days(year(1980) / 1 / 1);
    const sys_seconds latest = sys_days(year(2108) / 1 / 1) - seconds(1);
    const sys_seconds moment = std::clamp(sys_seconds(seconds(time)), earliest, latest);
    const auto day = floor<days>(moment);
    const year_month_day date(day);
    const hh_mm_ss clock(moment - day);
    const auto years = static_cast<std::uint64_t>(static_cast<int>(date.year()) - 1980);
    return years << 25 | std::uint64_t{unsigned{date.month()}} << 21 |
           std::uint64_t{unsigned{date.day()}} << 16 |
           static_cast<std::uint64_t>(clock.hours().count()) << 11 |
           static_cast<std::uint64_t>(clock.minutes().count()) << 5 |
           static_cast<std::uint64_t>(clock.seconds().count()) / 2;
}

/// Info-ZIP's extended timestamp ("UT"), the same in both headers: a signed 32-bit modification time, which
/// some readers take as unsigned. Times outside that range have only the MS-DOS time.
std::string timeExtra(std::int64_t time) {
    std::string extra;
    if (time < 0 || time > std::numeric_limits<std::int32_t>::max())
        return extra;
    constexpr std::uint64_t holdsModificationTime = 1;
    put(extra, 2, 0x5455);
    put(extra, 2, 5);
    put(extra, 1, holdsModificationTime);
    put(extra, 4, static_cast<std::uint64_t>(time));
    return extra;
}

/// The extra field with the numbers that do not fit into 32 bits; empty if there are none.
std::string zip64Extra(const std::string& numbers) {
    std::string extra;
    if (numbers.empty())
        return extra;
    constexpr std::uint64_t zip64Identifier = 1;
    put(extra, 2, zip64Identifier);
    put(extra, 2, numbers.size());
    return extra + numbers;
}

} // namespace

void ZipWriter::begin(Entry entry) {
    if (entry.name.size() > most16)
        throw Failure("cannot archive " + entry.name +
                      ": its path in the archive is longer than 65535 bytes; shorten it");
    _entry = std::move(entry);
    _headerOffset = _file.size();
    // The 64-bit sizes come first, where `end` overwrites them.
    const std::string sizes(needsZip64(_entry) ? 16 : 0, '\0');
    const std::string extra = zip64Extra(sizes) + timeExtra(_entry.modificationTime);
    std::string header;
    put(header, 4, 0x04034B50);
    put(header, 2, versionFor(_entry));
    put(header, 2, flagsFor(_entry));
    put(header, 2, static_cast<std::uint64_t>(_entry.method));
    put(header, 4, dosTime(_entry.modificationTime));
    header.append(12, '\0'); // checksum and sizes
    put(header, 2, _entry.name.size());
    put(header, 2, extra.size());
    _file.append(header + _entry.name + extra);
    _contentOffset = _file.size();
}

void ZipWriter::end(std::uint32_t crc32) {
    const bool isZip64 = needsZip64(_entry);
    const std::uint64_t packedSize = _file.size() - _contentOffset;
    std::string checksumAndSizes;
    put(checksumAndSizes, 4, crc32);
    put(checksumAndSizes, 4, isZip64 ? most32 : packedSize);
    put(checksumAndSizes, 4, isZip64 ? most32 : _entry.size);
    _file.overwrite(_headerOffset + checksumOffset, checksumAndSizes);
    std::string largeNumbers;
    if (isZip64) {
        put(largeNumbers, 8, _entry.size);
        put(largeNumbers, 8, packedSize);
        _file.overwrite(_headerOffset + localHeaderSize + _entry.name.size() + extraHeaderSize, largeNumbers);
    }
    // Only the central directory has the offset. A number in the extra field requires its 32-bit field to be
    // all ones.
    const bool isFar = _headerOffset >= most32;
    if (isFar)
        put(largeNumbers, 8, _headerOffset);

    const std::string extra = zip64Extra(largeNumbers) + timeExtra(_entry.modificationTime);
    const std::uint64_t version = isFar ? versionForZip64 : versionFor(_entry);
    constexpr std::uint64_t dosFolder = 0x10;
    put(_directory, 4, 0x02014B50);
    put(_directory, 2, madeByUnix | version);
    put(_directory, 2, version);
    put(_directory, 2, flagsFor(_entry));
    put(_directory, 2, static_cast<std::uint64_t>(_entry.method));
    put(_directory, 4, dosTime(_entry.modificationTime));
    _directory += checksumAndSizes;
    put(_directory, 2, _entry.name.size());
    put(_directory, 2, extra.size());
    put(_directory, 6, 0); // no comment, disk 0, no internal attributes
    put(_directory, 4, std::uint64_t{_entry.mode} << 16 | (S_ISDIR(_entry.mode) ? dosFolder : 0));
    put(_directory, 4, isFar ? most32 : _headerOffset);
    _directory += _entry.name + extra;
    ++_entryCount;
}

void ZipWriter::finish() {
    const std::uint64_t offset = _file.size();
    const std::uint64_t end = offset + _directory.size();
    std::string trailer;
    if (_entryCount >= most16 || _directory.size() >= most32 || offset >= most32) {
        put(trailer, 4, 0x06064B50);
        put(trailer, 8, 44); // the size of the rest of this record
        put(trailer, 2, madeByUnix | versionForZip64);
        put(trailer, 2, versionForZip64);
        put(trailer, 8, 0); // one disk
        put(trailer, 8, _entryCount);
        put(trailer, 8, _entryCount);
        put(trailer, 8, _directory.size());
        put(trailer, 8, offset);
        put(trailer, 4, 0x07064B50); // the locator of the record above
        put(trailer, 4, 0);
        put(trailer, 8, end);
        put(trailer, 4, 1);
    }
    put(trailer, 4, 0x06054B50);
    put(trailer, 4, 0); // one disk
    put(trailer, 2, std::min(_entryCount, most16));
    put(trailer, 2, std::min(_entryCount, most16));
    put(trailer, 4, std::min(std::uint64_t{_directory.size()}, most32));
    put(trailer, 4, std::min(offset, most32));
    put(trailer, 2, 0); // no comment
    _file.append(_directory);
    _file.append(trailer);
}

} // namespace ditto
