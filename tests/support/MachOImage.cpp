#include "support/MachOImage.h"

#include "MachO/TWLMachOSlice.h"

#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>

namespace support {

// The tests run on little-endian processors.
std::string littleEndian(std::initializer_list<std::uint32_t> words) {
    return {reinterpret_cast<const char*>(words.begin()), 4 * words.size()};
}

std::string bigEndian(std::initializer_list<std::uint32_t> words) {
    std::string bytes = littleEndian(words);
    for (std::size_t i = 0; i < bytes.size(); i += 4)
        std::reverse(&bytes[i], &bytes[i] + 4);
    return bytes;
}

MachOImage::MachOImage(std::uint32_t cputype, std::uint32_t cpusubtype, std::uint32_t filetype)
    : _magic(cputype & 0x01000000 ? 0xfeedfacf : 0xfeedface), _cputype(cputype), _cpusubtype(cpusubtype),
      _filetype(filetype) {}

MachOImage& MachOImage::sizedCommand(std::uint32_t cmd, std::uint32_t cmdsize, const std::string& payload) {
    _commands += littleEndian({cmd, cmdsize}) + payload;
    ++_count;
    return *this;
}

MachOImage& MachOImage::segment(const std::string& name, const std::vector<Section>& sections) {
    const bool is64Bit = _cputype & 0x01000000;
    const auto name16 = [](std::string text) {
        text.resize(16);
        return text;
    };
    std::string payload = name16(name) + std::string(is64Bit ? 40 : 24, '\0') +
                          littleEndian({static_cast<std::uint32_t>(sections.size()), 0});
    for (const Section& section : sections)
        payload += name16(section.name) + name16(section.segment) + std::string(is64Bit ? 16 : 8, '\0') +
                   littleEndian({section.offset, 0, 0, 0, 0, 0, 0}) + std::string(is64Bit ? 4 : 0, '\0');
    return command(is64Bit ? 0x19 : 1, payload);
}

MachOImage& MachOImage::magic(std::uint32_t word) {
    _magic = word;
    return *this;
}

MachOImage& MachOImage::commandCount(std::uint32_t count) {
    _count = count;
    return *this;
}

std::string MachOImage::bytes() const {
    const auto size = static_cast<std::uint32_t>(_commands.size());
    std::string header = littleEndian({_magic, _cputype, _cpusubtype, _filetype, _count, size, 0});
    if (_cputype & 0x01000000)
        header += littleEndian({0});
    return header + _commands;
}

std::string universalHeader(const std::vector<UniversalEntry>& entries) {
    std::string bytes = bigEndian({0xcafebabe, static_cast<std::uint32_t>(entries.size())});
    for (const UniversalEntry& entry : entries)
        bytes += bigEndian({entry.cputype, entry.cpusubtype, entry.offset, 0, 0});
    return bytes;
}

std::string universalFile(const std::vector<MachOImage>& images) {
    std::vector<UniversalEntry> entries;
    std::string contents;
    for (const MachOImage& image : images) {
        const std::size_t offset = 8 + 20 * images.size() + contents.size();
        entries.push_back({image._cputype, image._cpusubtype, static_cast<std::uint32_t>(offset)});
        contents += image.bytes();
    }
    return universalHeader(entries) + contents;
}

std::vector<std::string> sampleMachOFiles() {
    const std::string executable = MachOImage(0x0100000c, 0)
                                       .segment("__TEXT", {{"__unwind_info", 40}, {"__eh_frame", 44}})
                                       .uuid('\x11')
                                       .versionMin(0x25, 0x70000, 0x80100)
                                       .dylib("/usr/lib/libSystem.B.dylib")
                                       .bytes();
    const std::string object =
        MachOImage(12, 9, 1).segment("", {{"__eh_frame", 32}}).uuid('\x22').versionMin(0x24, 1, 2).bytes();
    const std::string shortCommands =
        MachOImage().sizedCommand(0x1b, 8, "").sizedCommand(0xc, 8, "").sizedCommand(0x24, 8, "").bytes();
    const auto offset = static_cast<std::uint32_t>(49 + executable.size());
    return {executable,
            object,
            shortCommands,
            MachOImage().magic(0xcffaedfe).uuid('\x33').bytes(),
            std::string(16, '\0'),
            universalHeader({{0x0100000c, 0, 48}, {12, 9, offset}}) + executable + '\xff' + object};
}

bool readGuarded(std::string_view bytes) {
    static char* const end = [] {
        constexpr std::size_t size = 1 << 20, page = 65536;
        void* const start =
            mmap(nullptr, size + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (start == MAP_FAILED || mprotect(static_cast<char*>(start) + size, page, PROT_NONE) != 0)
            throw std::bad_alloc();
        return static_cast<char*>(start) + size;
    }();
    char* const start = end - bytes.size();
    std::memcpy(start, bytes.data(), bytes.size());
    const auto began = std::chrono::steady_clock::now();
    bool inside = true;
    const auto readSlice = [&](const macho::TWLMachOSlice* record) {
        const auto slice = TWLMachOSlice::initWithSlice(record);
        for (const void* section : {slice->ehFrameData(), slice->unwindInfoData()})
            inside = inside && (!section || (section >= start && section <= end));
        inside = inside && (!slice->uuid() || slice->uuid()->size() == 32);
    };
    macho::TWLMachOEnumerateSlicesAtAddress(start, readSlice, bytes.size());
    return inside && std::chrono::steady_clock::now() - began < std::chrono::seconds(1);
}

} // namespace support
