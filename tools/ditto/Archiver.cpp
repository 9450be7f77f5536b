#include "ditto/Archiver.h"

#include "ditto/ArchiveFile.h"
#include "ditto/Failure.h"
#include "ditto/OrderedDeflater.h"
#include "ditto/SourceTree.h"
#include "ditto/ZipWriter.h"
#include "platform/files/FileCalls.h"

#include <libdeflate.h>
#include <sched.h>
#include <zlib.h>

#include <algorithm>
#include <memory>
#include <thread>

namespace ditto {
namespace {

unsigned usableCores() {
    cpu_set_t cores;
    if (sched_getaffinity(0, sizeof cores, &cores) == 0)
        return static_cast<unsigned>(CPU_COUNT(&cores));
    return std::thread::hardware_concurrency();
}

/// More threads are not faster: disks and memory limit the speed.
constexpr unsigned mostThreads = 64;

class Archiver {
public:
    explicit Archiver(ArchiveFile& file) : _zip(file), _deflater(std::min(usableCores(), mostThreads)) {}

    void add(SourceFile file) {
        const auto shared = std::make_shared<const SourceFile>(std::move(file));
        std::uint64_t offset = 0;
        do {
            const std::uint64_t size = std::min<std::uint64_t>(shared->size - offset, pieceSize);
            while (_deflater.full())
                writeFirstPiece();
            _deflater.add({.file = shared, .offset = offset, .size = static_cast<std::size_t>(size)});
            offset += size;
        } while (offset < shared->size);
    }

    void finish() {
        while (!_deflater.empty())
            writeFirstPiece();
        _zip.finish();
    }

private:
    void writeFirstPiece() {
        const auto [piece, deflated] = _deflater.takeFirst();
        const SourceFile& file = *piece.file;
        const std::string& target = file.linkTarget;
        if (piece.isFirst()) {
            _zip.begin(
                {.name = file.archiveName,
                 .mode = file.mode,
                 .modificationTime = file.modificationTime.tv_sec,
                 .size = file.size + target.size(),
                 .method = deflated.isStored ? ZipWriter::Method::stored : ZipWriter::Method::deflated});
            _crc32 = 0;
        }
        _zip.append(deflated.bytes());
        _crc32 = static_cast<std::uint32_t>(
            crc32_combine(_crc32, deflated.crc32, static_cast<z_off_t>(piece.size)));
        if (piece.isLast()) {
            // The content of a link's entry is its target. A link has one empty, stored piece.
            _zip.append(target);
            _zip.end(libdeflate_crc32(_crc32, target.data(), target.size()));
        }
    }

    ZipWriter _zip;
    OrderedDeflater _deflater;
    /// The checksum of the pieces of the open entry that were written.
    std::uint32_t _crc32 = 0;
};

/// An archive inside the source would contain itself; one that replaces the source would destroy it.
void refuseArchiveInsideSource(const std::string& source, const std::string& archive) {
    const std::string held = platform::realPath(source).value_or("");
    const std::size_t nameStart = archive.rfind('/') + 1;
    const std::string folder =
        platform::realPath(nameStart == 0 ? "." : archive.substr(0, nameStart)).value_or("");
    if (!held.empty() && ((folder + "/").starts_with(held + "/") || platform::realPath(archive) == held))
        throw Failure("cannot write " + archive + ": it is inside " + source + "; choose another folder");
}

} // namespace

void makeArchive(const std::string& source, const std::string& archive) {
    refuseArchiveInsideSource(source, archive);
    ArchiveFile file(archive);
    Archiver archiver(file);
    walkTree(source, [&](SourceFile entry) { archiver.add(std::move(entry)); });
    archiver.finish();
    file.commit();
}

} // namespace ditto
