#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace fuzz {

/// The words as a little-endian file holds them.
std::string littleEndian(std::initializer_list<std::uint32_t> words);
std::string bigEndian(std::initializer_list<std::uint32_t> words);

/// Assembles the header and load commands of one image, byte by byte. The defaults make an x86_64 executable.
class MachOImage {
public:
    explicit MachOImage(std::uint32_t cputype = 0x01000007, std::uint32_t cpusubtype = 3,
                        std::uint32_t filetype = 2);

    /// A command whose size is that of `payload` and the command's own eight bytes.
    MachOImage& command(std::uint32_t cmd, const std::string& payload);
    /// A command that claims `cmdsize`, whatever it holds.
    MachOImage& sizedCommand(std::uint32_t cmd, std::uint32_t cmdsize, const std::string& payload);
    /// An LC_UUID of 16 bytes `byte`.
    MachOImage& uuid(char byte);
    MachOImage& dylib(const std::string& path, std::uint32_t cmd = 0xc);
    MachOImage& versionMin(std::uint32_t cmd, std::uint32_t version, std::uint32_t sdk);

    struct Section {
        std::string name;
        std::uint32_t offset;
        std::string segment = "__TEXT";
    };
    MachOImage& segment(const std::string& name, const std::vector<Section>& sections);

    MachOImage& magic(std::uint32_t word);
    /// The header's count of commands, when it is not to be the true one.
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

/// The header and table of a universal file; the images follow at the offsets that the caller has chosen.
std::string universalHeader(const std::vector<UniversalEntry>& entries);

/// A universal file whose table says what its images say. They follow one another: nothing aligns them.
std::string universalFile(const std::vector<MachOImage>& images);

/// Small files that cover what the reader decodes: thin ones of both widths, an object file, one whose
/// commands are shorter than their structures and, last, a universal one whose second image starts at an odd
/// offset.
std::vector<std::string> sampleMachOFiles();

} // namespace fuzz
