#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// The words in little-endian byte order.
std::string littleEndian(std::initializer_list<std::uint32_t> words);
std::string bigEndian(std::initializer_list<std::uint32_t> words);

/// Assembles the header and load commands of one image. By default, an x86_64 executable.
class MachOImage {
public:
    explicit MachOImage(std::uint32_t cputype = 0x01000007, std::uint32_t cpusubtype = 3,
                        std::uint32_t filetype = 2);

    /// A command whose size is that of `payload` plus its own eight bytes.
    MachOImage& command(std::uint32_t cmd, const std::string& payload) {
        return sizedCommand(cmd, static_cast<std::uint32_t>(8 + payload.size()), payload);
    }
    /// A command with this `cmdsize`, whatever its real size is.
    MachOImage& sizedCommand(std::uint32_t cmd, std::uint32_t cmdsize, const std::string& payload);
    /// An LC_UUID with 16 bytes of value `byte`.
    MachOImage& uuid(char byte) { return command(0x1b, std::string(16, byte)); }
    MachOImage& dylib(const std::string& path, std::uint32_t cmd = 0xc) {
        return command(cmd, littleEndian({24, 0, 0x10000, 0x10000}) + path + '\0');
    }
    MachOImage& versionMin(std::uint32_t cmd, std::uint32_t version, std::uint32_t sdk) {
        return command(cmd, littleEndian({version, sdk}));
    }

    struct Section {
        std::string name;
        std::uint32_t offset;
        std::string segment = "__TEXT";
    };
    MachOImage& segment(const std::string& name, const std::vector<Section>& sections);

    MachOImage& magic(std::uint32_t word);
    /// The number of commands in the header, if it differs from the real number.
    MachOImage& commandCount(std::uint32_t count);

    std::string bytes() const;

private:
    friend std::string universalFile(const std::vector<MachOImage>& images);

    std::uint32_t _magic;
    std::uint32_t _cputype;
    std::uint32_t _cpusubtype;
    std::uint32_t _filetype;
    std::uint32_t _count = 0;
    std::string _commands;
};

struct UniversalEntry {
    std::uint32_t cputype;
    std::uint32_t cpusubtype;
    std::uint32_t offset;
};

/// The header and table of a universal file. The images follow at the given offsets.
std::string universalHeader(const std::vector<UniversalEntry>& entries);

/// A universal file with correct table. The images follow each other without alignment.
std::string universalFile(const std::vector<MachOImage>& images);

/// Small files that cover everything that the reader decodes: thin files of both widths, an object file, a
/// file whose commands are shorter than their structures and, last, a universal file whose second image is
/// at an odd offset.
std::vector<std::string> sampleMachOFiles();

/// Reads Mach-O bytes (up to 1 MiB) from memory that is followed by an inaccessible page: a read beyond their
/// end crashes, with or without a sanitizer. Makes objects of all slices and calls all their operations.
/// False if a result points outside the bytes or if this takes a second.
bool readGuarded(std::string_view bytes);

} // namespace support
