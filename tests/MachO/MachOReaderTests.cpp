#include "MachO/MachOReader.h"
#include "fuzz/MachOImage.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

namespace macho {
namespace {

using fuzz::MachOImage;
using testing::ElementsAre;

/// "type:subtype:name@offset" for each slice; "null" instead of the offset when the image lies outside.
std::vector<std::string> slicesOf(const std::string& bytes) {
    std::vector<std::string> slices;
    const auto describe = [&](const TWLMachOSlice* slice) {
        const auto* start = static_cast<const char*>(slice->startAddress);
        char types[32];
        std::snprintf(types, sizeof types, "%x:%x:", static_cast<unsigned>(slice->cputype),
                      static_cast<unsigned>(slice->cpusubtype));
        slices.push_back(types + std::string(TWLMachOSliceGetArchitectureName(slice)) + "@" +
                         (start ? std::to_string(start - bytes.data()) : "null"));
    };
    TWLMachOEnumerateSlicesAtAddress(bytes.data(), describe, bytes.size());
    return slices;
}

TWLMachOSlice sliceOf(const std::string& bytes) {
    TWLMachOSlice result;
    TWLMachOEnumerateSlicesAtAddress(
        bytes.data(), [&](const TWLMachOSlice* slice) { result = *slice; }, bytes.size());
    return result;
}

std::vector<std::pair<std::uint32_t, std::uint32_t>> commandsOf(TWLMachOSlice& slice) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> commands;
    TWLMachOSliceEnumerateLoadCommands(
        &slice, [&](auto cmd, auto cmdsize, const load_command*) { commands.emplace_back(cmd, cmdsize); });
    return commands;
}

TEST(MachOReader, EnumeratesThinAndUniversalFilesInTheirOrder) {
    const std::string image = MachOImage().bytes();
    EXPECT_THAT(slicesOf(image), ElementsAre("1000007:3:x86_64@0"));
    EXPECT_THAT(slicesOf(MachOImage(0x01000007, 0x80000003).bytes()),
                ElementsAre("1000007:80000003:x86_64@0"));
    EXPECT_THAT(slicesOf(MachOImage().magic(0xcefaedfe).bytes()), ElementsAre("1000007:3:x86_64@0"));
    for (const std::string& other : {std::string(16, '\0'), "not a Mach-O file" + image,
                                     fuzz::bigEndian({0xcafebabf, 1, 0x0100000c, 0, 0, 0, 0, 0})})
        EXPECT_THAT(slicesOf(other), ElementsAre("0:0:unknown@0"));

    std::string universal = fuzz::universalHeader({{12, 9, 68}, {12, 11, 69}, {0x0100000c, 0, 101}});
    universal.resize(140);
    const auto inOrder = ElementsAre("c:9:armv7@68", "c:b:armv7s@69", "100000c:0:arm64@101");
    EXPECT_THAT(slicesOf(universal), inOrder);
    std::reverse(universal.begin(), universal.begin() + 4);
    EXPECT_THAT(slicesOf(universal), inOrder) << "both words are followed by big-endian fields";
    EXPECT_THAT(slicesOf(fuzz::bigEndian({0xcafebabe, 0, 7, 3})), ElementsAre());
}

TEST(MachOReader, KeepsUniversalEntriesInsideTheFile) {
    const std::string header = fuzz::universalHeader({{7, 3, 48}, {7, 3, 47}, {7, 3, 0xffffffff}});
    EXPECT_THAT(slicesOf(header.substr(0, 48)), ElementsAre("7:3:i386@null", "7:3:i386@47"))
        << "the third entry is not all there";
    std::size_t count = 0;
    std::string many = fuzz::bigEndian({0xcafebabe, 0xffffffff}) + std::string(4000000, '\0');
    TWLMachOEnumerateSlicesAtAddress(
        many.data(), [&](auto*) { ++count; }, many.size());
    EXPECT_EQ(count, 65536u);
}

TEST(MachOReader, NamesArchitecturesAsThePlatformDoes) {
    struct Case {
        std::uint32_t cputype;
        std::uint32_t cpusubtype;
        const char* name;
    };
    for (const auto& [cputype, cpusubtype, name] :
         {Case{7, 3, "i386"}, Case{0x01000007, 8, "x86_64h"}, Case{12, 6, "armv6"}, Case{12, 9, "armv7"},
          Case{12, 11, "armv7s"}, Case{12, 12, "armv7k"}, Case{0x0100000c, 0, "arm64"},
          Case{0x0100000c, 0x80000002, "arm64e"}, Case{0x0200000c, 1, "arm64_32"}, Case{18, 0, "ppc"},
          Case{0x01000012, 0, "ppc64"}, Case{12, 99, "unknown"}, Case{0x07000001, 3, "unknown"}}) {
        const TWLMachOSlice slice = sliceOf(MachOImage(cputype, cpusubtype).bytes());
        EXPECT_STREQ(TWLMachOSliceGetArchitectureName(&slice), name);
    }
}

TEST(MachOReader, FindsTheLastSliceOfAName) {
    const support::TemporaryFolder folder;
    std::string universal = fuzz::universalHeader({{7, 3, 70}, {12, 9, 71}, {7, 3, 72}});
    universal.resize(80);
    TWLMachOFile file;
    ASSERT_TRUE(TWLMachOFileInitWithPath(&file, folder.write("universal", universal).c_str()));
    const TWLMachOSlice found = TWLMachOFileSliceWithArchitectureName(&file, "i386");
    EXPECT_EQ(static_cast<const char*>(found.startAddress) - static_cast<const char*>(file.mappedFile), 72);
    const TWLMachOSlice missing = TWLMachOFileSliceWithArchitectureName(&file, "arm64");
    EXPECT_TRUE(!missing.startAddress && missing.cputype == 0 && missing.cpusubtype == 0);
    TWLMachOFileDestroy(&file);
    TWLMachOFileDestroy(&file);
    EXPECT_TRUE(file.fd == -1 && !file.mappedFile);
}

TEST(MachOReader, WalksCommandsByTheirSizesAlone) {
    std::string bytes = MachOImage(12, 9).uuid(1).sizedCommand(7, 0, "").uuid(2).commandCount(5).bytes();
    std::string universal = fuzz::universalHeader({{0x0100000c, 0, 29}}) + '\0' + bytes;
    TWLMachOSlice slice = sliceOf(universal);
    EXPECT_EQ(slice.cputype, 0x0100000c);
    EXPECT_THAT(commandsOf(slice), ElementsAre(std::pair(0x1b, 24), std::pair(7, 0), std::pair(7, 0),
                                               std::pair(7, 0), std::pair(7, 0)));
    EXPECT_TRUE(slice.cputype == 12 && slice.cpusubtype == 9) << "the header's types replace the table's";

    bytes = MachOImage().sizedCommand(7, 0, "").commandCount(0xffffffff).bytes();
    slice = sliceOf(bytes);
    EXPECT_EQ(commandsOf(slice).size(), bytes.size() / 8);
    bytes = MachOImage().uuid(1).sizedCommand(7, 9, "").bytes();
    slice = sliceOf(bytes);
    EXPECT_EQ(commandsOf(slice).size(), 1u) << "the second command ends outside";
    bytes = MachOImage().magic(0xcffaedfe).command(7, "").commandCount(1).bytes();
    slice = sliceOf(bytes);
    EXPECT_THAT(commandsOf(slice), ElementsAre(std::pair(7, 8))) << "counts behind a swapped magic are raw";
    slice = TWLMachOSliceWithHeader(bytes.data());
    EXPECT_EQ(slice.cputype, 0);
    EXPECT_EQ(commandsOf(slice).size(), 1u);
    EXPECT_EQ(slice.cputype, 0x01000007);
}

/// The offset of a section's start, -1 when it is null.
std::ptrdiff_t sectionOffset(const std::string& bytes, const char* name) {
    const TWLMachOSlice slice = sliceOf(bytes);
    const void* section = &slice;
    TWLMachOSliceGetSectionByName(&slice, name, &section);
    return section ? static_cast<const char*>(section) - bytes.data() : -1;
}

TEST(MachOReader, FindsSectionsAsThePlatformDoes) {
    const std::string longName = "__a_16_char_name";
    for (const std::uint32_t cputype : {7u, 0x01000007u}) {
        const std::string bytes =
            MachOImage(cputype)
                .segment("__DATA", {{"__eh_frame", 1}})
                .segment("__TEXT", {{"__eh_frame", 2, "__DATA"}, {longName, 3}})
                .segment("__TEXT", {{"__eh_frame", 4}, {"__eh_frame", 5}, {"__far", 99999}})
                .bytes();
        EXPECT_EQ(sectionOffset(bytes, "__eh_frame"), 4);
        EXPECT_EQ(sectionOffset(bytes, longName.c_str()), 3);
        EXPECT_EQ(sectionOffset(bytes, "__a_16_char_nam"), -1);
        EXPECT_EQ(sectionOffset(bytes, "__unwind_info"), -1);
        EXPECT_EQ(sectionOffset(bytes, "__far"), -1) << "starts outside the file";
        const auto object = MachOImage(cputype, 3, 1).segment("", {{"x", 6, "__LD"}, {"x", 7}});
        EXPECT_EQ(sectionOffset(object.bytes(), "x"), 7) << "object files have one unnamed segment";
    }
}

TEST(MachOReader, DecodesCommandsAtAnyAddress) {
    std::string uuid;
    for (int i = 0; i < 16; ++i)
        uuid += static_cast<char>(i * 0x11);
    const std::string bytes = std::string("x") + fuzz::littleEndian({0x1b, 24}) + uuid;
    EXPECT_EQ(TWLMachONormalizeUUID(TWLMachOGetUUID(bytes.data() + 1)), "00112233445566778899aabbccddeeff");
    const std::string version = std::string("x") + fuzz::littleEndian({0x24, 16, 0x000a0900, 0xfffffffe});
    const TWLMachOVersion minimum = TWLMachOGetMinimumOSVersion(version.data() + 1);
    EXPECT_EQ(TWLMachOFormatVersion(&minimum), "10.9.0");
    EXPECT_EQ(TWLMachOGetLinkedSDKVersion(version.data() + 1), (TWLMachOVersion{0xffff, 0xff, 0xfe}));
    EXPECT_EQ(TWLMachOFormatVersion(nullptr), std::nullopt);
    for (const std::uint32_t cryptid : {0u, 1u, 0x80000000u})
        EXPECT_EQ(TWLMachOGetEncrypted(fuzz::littleEndian({0x21, 20, 1, 1, cryptid}).data()), cryptid != 0);
    EXPECT_STREQ(TWLMachOGetDylibPath((fuzz::littleEndian({0xc, 15, 12}) + "/x").data()), "/x");
}

TEST(MachOReader, DescribesTheRunningExecutable) {
    const TWLMachOSlice current = TWLMachOSliceGetCurrent();
    ASSERT_NE(current.startAddress, nullptr);
    EXPECT_EQ(std::memcmp(current.startAddress, "\177ELF", 4), 0);
    EXPECT_STRNE(TWLMachOSliceGetArchitectureName(&current), "unknown");
    EXPECT_THAT(TWLMachOSliceGetExecutablePath(&current), testing::EndsWith("/macho_tests"));
    EXPECT_EQ(*TWLMachOSliceGetExecutablePath(&current), '/');
    const TWLMachOSlice onTheStack = TWLMachOSliceWithHeader(&current);
    EXPECT_EQ(TWLMachOSliceGetExecutablePath(&onTheStack), nullptr);
    TWLMachOFile file;
    EXPECT_TRUE(TWLMachOFileInitWithCurrent(&file));
    EXPECT_EQ(std::memcmp(file.mappedFile, current.startAddress, 64), 0);
    TWLMachOFileDestroy(&file);
}

} // namespace
} // namespace macho
