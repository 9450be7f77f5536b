#include "MachO/MachOReader.h"
#include "MachO/TWLdSYM.h"
#include "support/MachOImage.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

namespace macho {
namespace {

using namespace support;

/// One line for each slice: "name@offset" (or "name@null" for an image outside the file) and "cmd:cmdsize"
/// for each load command. The name is read after the commands were enumerated.
std::string linesOf(const std::string& bytes) {
    std::string lines;
    const auto addLine = [&](TWLMachOSlice* slice) {
        std::string commands;
        TWLMachOSliceEnumerateLoadCommands(slice, [&](auto cmd, auto cmdsize, const load_command*) {
            commands += " " + std::to_string(cmd) + ":" + std::to_string(cmdsize);
        });
        const auto* start = static_cast<const char*>(slice->startAddress);
        lines += TWLMachOSliceGetArchitectureName(slice) + std::string("@") +
                 (start ? std::to_string(start - bytes.data()) : "null") + commands + "\n";
    };
    TWLMachOEnumerateSlicesAtAddress(bytes.data(), addLine, bytes.size());
    return lines;
}

TEST(MachOReader, EnumeratesSlicesInFileOrder) {
    std::string universal = universalHeader(
        {{0x01000007, 0x80000003, 1}, {0x0100000c, 0x80000002, 2}, {12, 12, 107}, {0x07000001, 3, 108}, {}});
    const std::string inOrder = "x86_64@1\narm64e@2\narmv7k@107\nunknown@null\n";
    EXPECT_EQ(linesOf(universal), inOrder + "unknown@0\n");
    universal.replace(0, 4, littleEndian({0xcafebabe}));
    EXPECT_EQ(linesOf(universal), inOrder + "unknown@0\n") << "big-endian fields follow either word";
    EXPECT_EQ(linesOf(bigEndian({0xcafebabf, 1, 0x0100000c, 0, 0, 0})), "unknown@0\n");
    EXPECT_EQ(linesOf(bigEndian({0xcafebabe, 0, 7, 3})), "");
    const std::string endless = bigEndian({0xcafebabe, 0xffffffff}) + std::string(2000000, '\0');
    EXPECT_EQ(linesOf(endless).size(), 65536 * std::strlen("unknown@0\n"));
}

TEST(MachOReader, EnumeratesCommandsByTheirSizes) {
    const auto repeated = MachOImage(12, 9).uuid(1).sizedCommand(7, 0, "").uuid(2).commandCount(3);
    const std::string universal = universalHeader({{0x0100000c, 0, 29}}) + '\0' + repeated.bytes();
    EXPECT_EQ(linesOf(universal), "armv7@29 27:24 7:0 7:0\n");
    EXPECT_EQ(linesOf(MachOImage().sizedCommand(7, 0, "").commandCount(0xffffffff).bytes()),
              "x86_64@0 7:0 7:0 7:0 7:0 7:0\n");
    EXPECT_EQ(linesOf(MachOImage().uuid(1).sizedCommand(7, 9, "").bytes()), "x86_64@0 27:24\n");
    EXPECT_EQ(linesOf(MachOImage(7).magic(0xcefaedfe).uuid(1).bytes()), "i386@0 27:24\n");
    EXPECT_EQ(linesOf(MachOImage().magic(0xcffaedfe).uuid(1).bytes()), "x86_64@0 27:24\n");
}

TEST(MachOReader, FindsSectionsByName) {
    for (const std::uint32_t cputype : {7u, 0x01000007u}) {
        const auto expectAt = [&](int offset, const MachOImage& image, const char* name) {
            const std::string bytes = image.bytes();
            const TWLMachOSlice slice = {bytes.data(), static_cast<std::int32_t>(cputype), 3, bytes.size()};
            const void* section = &slice;
            TWLMachOSliceGetSectionByName(&slice, name, &section);
            EXPECT_EQ(section, offset ? bytes.data() + offset : nullptr) << name;
        };
        const std::uint32_t end = cputype == 7 ? 672 : 808; // of the whole image
        MachOImage image(cputype);
        image.segment("__DATA", {{"__eh_frame", 1}});
        image.segment("__TEXT", {{"__eh_frame", 2, "__DATA"}, {"__a_16_char_name", 3}, {"__eh_frame", 4}});
        image.segment("__TEXT", {{"__eh_frame", 5}, {"__end", end}, {"__far", end + 1}});
        expectAt(4, image, "__eh_frame");
        expectAt(3, image, "__a_16_char_name");
        expectAt(0, image, "__a_16_char_nam");
        expectAt(0, image, "__far");
        expectAt(static_cast<int>(end), image, "__end");
        expectAt(7, MachOImage(cputype, 3, 1).segment("", {{"x", 6, "__LD"}, {"x", 7}}), "x");
    }
}

const char* const pathBeforeMain = [] {
    const TWLMachOSlice current = TWLMachOSliceGetCurrent();
    return TWLMachOSliceGetExecutablePath(&current);
}();

TEST(MachOReader, OpensFilesAndTheRunningExecutable) {
    const support::TemporaryFolder folder;
    const std::string header = universalHeader({{7, 3, 1}, {7, 3, 2}, {12, 9, 3}});
    TWLMachOFile file = {.fd = 77};
    EXPECT_TRUE(!TWLMachOFileInitWithPath(&file, nullptr) && file.fd == 77);
    ASSERT_TRUE(TWLMachOFileInitWithPath(&file, folder.write("universal", header).c_str()));
    EXPECT_EQ(TWLMachOFileSliceWithArchitectureName(&file, "i386").startAddress,
              static_cast<const char*>(file.mappedFile) + 2);
    TWLMachOFileDestroy(&file);

    const TWLMachOSlice current = TWLMachOSliceGetCurrent(), onTheStack = TWLMachOSliceWithHeader(&current);
    EXPECT_STRNE(TWLMachOSliceGetArchitectureName(&current), "unknown");
    EXPECT_STREQ(TWLMachOSliceGetExecutablePath(&current), pathBeforeMain);
    ASSERT_TRUE(TWLMachOFileInitWithCurrent(&file) && !TWLMachOSliceGetExecutablePath(&onTheStack));
    EXPECT_EQ(std::memcmp(file.mappedFile, current.startAddress, 64), 0);
    TWLMachOFileDestroy(&file);
    EXPECT_TRUE(!TWLMachOFileInitWithPath(&file, folder.path().c_str()) && file.fd == -1);
}

std::shared_ptr<TWLMachOBinary> binaryOf(const std::string& bytes) {
    const support::TemporaryFolder folder;
    return TWLMachOBinary::MachOBinaryWithPath(folder.write("a product", bytes));
}

/// "architecture uuid" for each slice of a TWLMachOBinary or TWLdSYM.
std::string pairsOf(const auto& object) {
    std::string pairs;
    object->enumerateUUIDs(
        [&](const auto& uuid, const auto& name) { pairs += name + " " + uuid.value_or("null") + "\n"; });
    return pairs;
}

TEST(TWLMachOBinary, ListsAndIdentifiesItsSlices) {
    const MachOImage armv7 = MachOImage(12, 9).uuid('\xaa');
    const MachOImage arm64 = MachOImage(0x0100000c, 0).uuid('\xbb');
    const std::string a(32, 'a'), b(32, 'b');
    const auto binary = binaryOf(universalFile({armv7, arm64}));
    EXPECT_EQ(pairsOf(binary), "armv7 " + a + "\narm64 " + b + "\n");
    EXPECT_EQ(binary->instanceIdentifier(), TWLHashNSString(b + a));
    EXPECT_EQ(binaryOf(universalFile({arm64, armv7}))->instanceIdentifier(), TWLHashNSString(b + a));
    EXPECT_EQ(binary->instanceIdentifier(), TWLHashNSString(b + a)) << "the file on disk is gone";
    EXPECT_EQ(binary->sliceForArchitecture("x86_64"), nullptr);
    const MachOImage second = MachOImage(12, 9).uuid('\xbb');
    EXPECT_EQ(binaryOf(universalFile({second, armv7}))->instanceIdentifier(), TWLHashNSString(a + b));
    const auto other = binaryOf(universalFile({armv7, MachOImage(12, 9)}));
    EXPECT_EQ(other->sliceForArchitecture("armv7")->uuid(), a);
    EXPECT_THROW(other->instanceIdentifier(), std::logic_error);
    EXPECT_EQ(TWLMachOBinary::hashNSString({"abc\0d", 5}), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST(TWLMachOBinary, SlicesOutliveTheirFile) {
    MachOImage image;
    image.segment("__TEXT", {{"__eh_frame", 1}, {"__unwind_info", 0}});
    image.uuid(1).versionMin(0x24, 0x000a0900, 0x000a0a01).uuid('\xfe');
    image.versionMin(0x25, 0x00070000, 0xfffffffe).versionMin(0x2f, 0x00090000, 0x00090000);
    image.dylib("/b").dylib("/weak", 0x80000018).dylib("/reexported", 0x8000001f).dylib("/not UTF-8\xff");
    image.dylib("/a\xC3\xA9").dylib("/b").command(0xc, littleEndian({0xffffffff, 0, 0, 0}));
    image.command(0xc, littleEndian({24, 0, 0, 0}) + "/does not end");
    const auto slice = binaryOf(image.bytes())->slices().at(0);
    EXPECT_EQ(slice->uuid()->substr(28), "fefe");
    EXPECT_THAT(slice->linkedDylibs(), testing::ElementsAre("/b", "/a\xC3\xA9", "/b"));
    EXPECT_EQ(slice->minimumOSVersion(), (TWLMachOVersion{7, 0, 0}));
    EXPECT_EQ(slice->linkedSDKVersion(), (TWLMachOVersion{0xffff, 0xff, 0xfe}));
    EXPECT_EQ(*static_cast<const unsigned char*>(slice->ehFrameData()), 0xfa);
    EXPECT_EQ(*static_cast<const unsigned char*>(slice->unwindInfoData()), 0xcf);
    EXPECT_FALSE(::TWLMachOSlice::runningSlice()->uuid() || TWLMachOFormatVersion(nullptr));
    EXPECT_TRUE(TWLMachOGetEncrypted(littleEndian({0x21, 20, 1, 1, 0x80000000}).data()));
    EXPECT_FALSE(TWLMachOGetEncrypted(littleEndian({0x21, 20, 1, 1, 0}).data()));
}

TEST(TWLMachOBinary, OpensRegularFilesOfAtLeastSixteenBytes) {
    const support::TemporaryFolder folder;
    const std::uint32_t offset = 0xfffff001;
    const std::string large = folder.write("large", universalHeader({{7, 3, offset}}));
    std::fstream(large).seekp(offset) << MachOImage().uuid('\x77').bytes();
    std::filesystem::resize_file(large, (std::uintmax_t{4} << 30) + 1000);
    EXPECT_EQ(pairsOf(TWLMachOBinary::MachOBinaryWithPath(large)), "x86_64 " + std::string(32, '7') + "\n");
    EXPECT_EQ(pairsOf(binaryOf(std::string(16, '\0'))), "unknown null\n");

    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    const int lowestFree = dup(0);
    close(lowestFree);
    for (const std::string& each : {folder.path(), folder.path("pipe"), std::string("/dev/zero"),
                                    large + std::string("\0x", 2), std::string()})
        EXPECT_EQ(TWLMachOBinary::MachOBinaryWithPath(each), nullptr) << each;
    EXPECT_EQ(binaryOf(std::string(15, '\0')), nullptr);
    EXPECT_EQ(dup(0), lowestFree);
}

TEST(TWLdSYM, ReadsItsInfoPlistAndTheFirstFile) {
    const support::TemporaryFolder folder;
    const std::string dwarf = "A B.dSYM/Contents/Resources/DWARF/";
    const auto bundle = [&] {
        return TWLdSYM::dSYMWithURL(platform::URL::fileURLWithPath(folder.path("A B.dSYM")));
    };
    folder.makeFolder(dwarf);
    EXPECT_EQ(bundle(), nullptr);
    const std::string file = folder.write(dwarf + "b", MachOImage().uuid('\x11').bytes());
    folder.write(dwarf + "c", MachOImage().bytes());
    folder.write(dwarf + ".DS_Store", std::string(16, '\0'));
    EXPECT_EQ(bundle()->executableURL(), platform::URL::fileURLWithPath(file));
    EXPECT_EQ(pairsOf(bundle()), "x86_64 " + std::string(32, '1') + "\n");
    folder.write(dwarf + "a/sub-folder", MachOImage().bytes());
    EXPECT_TRUE(!bundle()->executablePath() && !bundle()->executableURL() && pairsOf(bundle()).empty());

    const std::string id = "CFBundleIdentifier</key>", version = "<key>CFBundleVersion</key>";
    const std::pair<std::string, const char*> identities[] = {
        {id + "<string>com.apple.xcode</string>", "com.apple.xcode null"},
        {id + "<true/>" + version + "<true/>", "null 1"},
        {id + "<string/>" + version + "<real>2e6</real>", " 2000000"},
        {id + "<string/>" + version + "<real>0.1234567891</real>", " 0.1234567891"},
        {id + "<string/>" + version + "<array><string>a</string></array>", " (\"a\")"},
        {id + "<string>com.apple.xcode.dsym.ShopApp</string>" + version + "<integer>7</integer>",
         "ShopApp 7"}};
    for (const auto& [members, identity] : identities) {
        folder.write("A B.dSYM/Contents/Info.plist", "<plist><dict><key>" + members + "</dict></plist>");
        EXPECT_EQ(bundle()->bundleIdentifier().value_or("null") + " " +
                      bundle()->bundleVersion().value_or("null"),
                  identity);
    }
}

} // namespace
} // namespace macho
