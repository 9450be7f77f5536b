#include "MachO/MachOReader.h"
#include "fuzz/MachOImage.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <cstring>

namespace macho {
namespace {

using fuzz::bigEndian;
using fuzz::littleEndian;
using fuzz::MachOImage;
using testing::ElementsAre;
using testing::Pair;

std::vector<TWLMachOSlice> slicesOf(const std::string& bytes) {
    std::vector<TWLMachOSlice> slices;
    TWLMachOEnumerateSlicesAtAddress(
        bytes.data(), [&](const TWLMachOSlice* slice) { slices.push_back(*slice); }, bytes.size());
    return slices;
}

/// "name@offset" for each slice, "null" for an image that lies outside.
std::vector<std::string> placesOf(const std::string& bytes) {
    std::vector<std::string> places;
    for (const TWLMachOSlice& slice : slicesOf(bytes)) {
        const auto* start = static_cast<const char*>(slice.startAddress);
        places.push_back(TWLMachOSliceGetArchitectureName(&slice) + std::string("@") +
                         (start ? std::to_string(start - bytes.data()) : "null"));
    }
    return places;
}

std::vector<std::pair<std::uint32_t, std::uint32_t>> commandsOf(TWLMachOSlice& slice) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> commands;
    TWLMachOSliceEnumerateLoadCommands(
        &slice, [&](auto cmd, auto cmdsize, const load_command*) { commands.emplace_back(cmd, cmdsize); });
    return commands;
}

TEST(MachOReader, EnumeratesThinAndUniversalFilesInTheirOrder) {
    for (const std::uint32_t magic : {0xfeedfacfu, 0xcffaedfeu, 0xfeedfaceu, 0xcefaedfeu})
        EXPECT_THAT(placesOf(MachOImage().magic(magic).bytes()), ElementsAre("x86_64@0"));
    for (const std::string& other : {std::string(16, '\0'), bigEndian({0xcafebabf, 1, 0x0100000c, 0, 0, 0})})
        EXPECT_THAT(placesOf(other), ElementsAre("unknown@0"));
    std::string universal =
        fuzz::universalHeader({{12, 9, 68}, {12, 11, 69}, {0x0100000c, 0, 139}, {7, 3, 140}});
    universal.resize(140);
    const auto inOrder = ElementsAre("armv7@68", "armv7s@69", "arm64@139", "i386@null");
    EXPECT_THAT(placesOf(universal), inOrder);
    universal.replace(0, 4, littleEndian({0xcafebabe}));
    EXPECT_THAT(placesOf(universal), inOrder) << "big-endian fields follow either word";
    EXPECT_THAT(placesOf(universal.substr(0, 87)), testing::SizeIs(3)) << "an entry is not all there";
    EXPECT_THAT(placesOf(bigEndian({0xcafebabe, 0, 7, 3})), ElementsAre());
    EXPECT_THAT(placesOf(bigEndian({0xcafebabe, 0xffffffff}) + std::string(2000000, '\0')),
                testing::SizeIs(65536));
}

TEST(MachOReader, NamesArchitecturesAsThePlatformDoes) {
    const std::tuple<std::uint32_t, std::uint32_t, const char*> cases[] = {{7, 3, "i386"},
                                                                           {0x01000007, 0x80000003, "x86_64"},
                                                                           {0x01000007, 8, "x86_64h"},
                                                                           {12, 6, "armv6"},
                                                                           {12, 11, "armv7s"},
                                                                           {12, 12, "armv7k"},
                                                                           {0x0100000c, 0, "arm64"},
                                                                           {0x0100000c, 0x80000002, "arm64e"},
                                                                           {0x0200000c, 1, "arm64_32"},
                                                                           {18, 0, "ppc"},
                                                                           {0x01000012, 0, "ppc64"},
                                                                           {0x07000001, 3, "unknown"}};
    for (const auto& [cputype, cpusubtype, name] : cases)
        EXPECT_STREQ(TWLMachOSliceGetArchitectureName(&slicesOf(MachOImage(cputype, cpusubtype).bytes())[0]),
                     name);
}

TEST(MachOReader, FindsTheLastSliceOfAName) {
    const support::TemporaryFolder folder;
    const std::string path =
        folder.write("universal", fuzz::universalHeader({{7, 3, 1}, {7, 3, 2}, {12, 9, 3}}));
    TWLMachOFile file;
    ASSERT_TRUE(TWLMachOFileInitWithPath(&file, path.c_str()));
    EXPECT_EQ(TWLMachOFileSliceWithArchitectureName(&file, "i386").startAddress,
              static_cast<const char*>(file.mappedFile) + 2);
    const TWLMachOSlice missing = TWLMachOFileSliceWithArchitectureName(&file, "arm64");
    EXPECT_TRUE(!missing.startAddress && missing.cputype == 0 && missing.cpusubtype == 0);
    for (int i = 0; i < 2; ++i)
        TWLMachOFileDestroy(&file);
    EXPECT_TRUE(file.fd == -1 && !file.mappedFile);
}

TEST(MachOReader, WalksCommandsByTheirSizesAlone) {
    const std::string image =
        MachOImage(12, 9).uuid(1).sizedCommand(7, 0, "").uuid(2).commandCount(3).bytes();
    const std::string universal = fuzz::universalHeader({{0x0100000c, 0, 29}}) + '\0' + image;
    TWLMachOSlice slice = slicesOf(universal)[0];
    EXPECT_EQ(slice.cputype, 0x0100000c);
    EXPECT_THAT(commandsOf(slice), ElementsAre(Pair(0x1b, 24), Pair(7, 0), Pair(7, 0)));
    EXPECT_TRUE(slice.cputype == 12 && slice.cpusubtype == 9) << "the header's types replace the table's";

    const auto countOf = [](const std::string& bytes) {
        return commandsOf(slicesOf(bytes)[0]).size();
    };
    EXPECT_EQ(countOf(MachOImage().sizedCommand(7, 0, "").commandCount(0xffffffff).bytes()), 5u);
    EXPECT_EQ(countOf(MachOImage().uuid(1).sizedCommand(7, 9, "").bytes()), 1u) << "the second ends outside";
    EXPECT_EQ(countOf(MachOImage().magic(0xcffaedfe).uuid(1).bytes()), 1u) << "counts are never swapped";
    slice = TWLMachOSliceWithHeader(image.data());
    EXPECT_EQ(slice.cputype, 0);
    EXPECT_EQ(commandsOf(slice).size(), 3u);
    EXPECT_EQ(slice.cputype, 12);
}

/// The offset of a section's start, -1 when it is null.
std::ptrdiff_t sectionOffset(const std::string& bytes, const char* name) {
    const void* section = &bytes;
    TWLMachOSliceGetSectionByName(&slicesOf(bytes)[0], name, &section);
    return section ? static_cast<const char*>(section) - bytes.data() : -1;
}

TEST(MachOReader, FindsSectionsAsThePlatformDoes) {
    for (const std::uint32_t cputype : {7u, 0x01000007u}) {
        const std::string bytes =
            MachOImage(cputype)
                .segment("__DATA", {{"__eh_frame", 1}})
                .segment("__TEXT", {{"__eh_frame", 2, "__DATA"}, {"__a_16_char_name", 3}, {"__eh_frame", 4}})
                .segment("__TEXT", {{"__eh_frame", 5}, {"__far", 99999}})
                .bytes();
        const std::pair<const char*, int> cases[] = {{"__eh_frame", 4},
                                                     {"__a_16_char_name", 3},
                                                     {"__a_16_char_nam", -1},
                                                     {"__missing", -1},
                                                     {"__far", -1}};
        for (const auto& [name, offset] : cases)
            EXPECT_EQ(sectionOffset(bytes, name), offset) << name;
        const auto object = MachOImage(cputype, 3, 1).segment("", {{"x", 6, "__LD"}, {"x", 7}});
        EXPECT_EQ(sectionOffset(object.bytes(), "x"), 7) << "object files have one unnamed segment";
    }
}

TEST(MachOReader, DecodesCommandsAtAnyAddress) {
    const std::string uuid =
        std::string(1, 0) + bigEndian({0, 0, 0x00112233, 0x44556677, 0x8899aabb, 0xccddeeff});
    EXPECT_EQ(TWLMachONormalizeUUID(TWLMachOGetUUID(uuid.data() + 1)), "00112233445566778899aabbccddeeff");
    const std::string version = std::string(1, 0) + littleEndian({0x24, 16, 0x000a0900, 0xfffffffe});
    const TWLMachOVersion minimum = TWLMachOGetMinimumOSVersion(version.data() + 1);
    EXPECT_EQ(TWLMachOFormatVersion(&minimum), "10.9.0");
    EXPECT_EQ(TWLMachOGetLinkedSDKVersion(version.data() + 1), (TWLMachOVersion{0xffff, 0xff, 0xfe}));
    EXPECT_EQ(TWLMachOFormatVersion(nullptr), std::nullopt);
    for (const std::uint32_t cryptid : {0u, 1u, 0x80000000u})
        EXPECT_EQ(TWLMachOGetEncrypted(littleEndian({0x21, 20, 1, 1, cryptid}).data()), cryptid != 0);
    EXPECT_STREQ(TWLMachOGetDylibPath((littleEndian({0xc, 15, 12}) + "/x").data()), "/x");
}

TEST(MachOReader, DescribesTheRunningExecutable) {
    const TWLMachOSlice current = TWLMachOSliceGetCurrent();
    EXPECT_STRNE(TWLMachOSliceGetArchitectureName(&current), "unknown");
    EXPECT_THAT(TWLMachOSliceGetExecutablePath(&current), testing::EndsWith("/macho_tests"));
    const TWLMachOSlice onTheStack = TWLMachOSliceWithHeader(&current);
    EXPECT_EQ(TWLMachOSliceGetExecutablePath(&onTheStack), nullptr);
    TWLMachOFile file;
    ASSERT_TRUE(TWLMachOFileInitWithCurrent(&file));
    EXPECT_EQ(std::memcmp(file.mappedFile, current.startAddress, 64), 0);
    TWLMachOFileDestroy(&file);
}

} // namespace
} // namespace macho
