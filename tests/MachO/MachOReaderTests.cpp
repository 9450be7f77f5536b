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
    const std::string inOrder = "x86_64@1\narm64e@2\narmv7k@107\nunknown@null\nunknown@0\n";
    EXPECT_EQ(linesOf(universal), inOrder);
    universal.replace(0, 4, littleEndian({0xcafebabe}));
    EXPECT_EQ(linesOf(universal), inOrder) << "fields are big-endian after both magics";
    EXPECT_EQ(linesOf(bigEndian({0xcafebabf, 1, 0x0100000c, 0, 0, 0})), "unknown@0\n") << "64-bit table";
}

TEST(MachOReader, ReadsBetween0And65536Slices) {
    EXPECT_EQ(linesOf(bigEndian({0xcafebabe, 0, 7, 3})), "");
    const std::string endless = bigEndian({0xcafebabe, 0xffffffff}) + std::string(2000000, '\0');
    EXPECT_EQ(linesOf(endless).size(), 65536 * std::strlen("unknown@0\n"));
}

/// `count` times the command 7 of size 0, as in linesOf.
std::string repetitions(std::size_t count) {
    std::string text;
    while (count-- > 0)
        text += " 7:0";
    return text;
}

TEST(MachOReader, EnumeratesCommandsByTheirSizes) {
    const auto repeated = [](std::uint32_t count) {
        return MachOImage().sizedCommand(7, 0, "").commandCount(count).bytes();
    };
    const struct {
        const char* name;
        std::string bytes, lines;
    } cases[] = {
        {"a command of size 0 repeats; the header's type replaces that of the entry",
         universalHeader({{0x0100000c, 0, 29}}) + '\0' +
             MachOImage(12, 9).uuid(1).sizedCommand(7, 0, "").uuid(2).commandCount(3).bytes(),
         "armv7@29 27:24 7:0 7:0\n"},
        {"as often as the header says", repeated(300), "x86_64@0" + repetitions(300) + "\n"},
        {"a number of commands that would take long", repeated(0xffffffff),
         "x86_64@0" + repetitions(65536) + "\n"},
        {"the same in a larger file", repeated(0xffffffff) + std::string(600'000, '\0'),
         "x86_64@0" + repetitions((32 + 8 + 600'000) / 8) + "\n"},
        {"a command that exceeds the file",
         MachOImage().uuid(1).sizedCommand(7, 9, "").uuid(2).bytes().substr(0, 64), "x86_64@0 27:24 7:9\n"},
        {"a command whose head exceeds the file",
         MachOImage().uuid(1).sizedCommand(7, 8, "").bytes().substr(0, 63), "x86_64@0 27:24\n"},
        {"a swapped 32-bit magic", MachOImage(7).magic(0xcefaedfe).uuid(1).bytes(), "i386@0 27:24\n"},
        {"a swapped 64-bit magic", MachOImage().magic(0xcffaedfe).uuid(1).bytes(), "x86_64@0 27:24\n"}};
    for (const auto& [name, bytes, lines] : cases)
        EXPECT_TRUE(linesOf(bytes) == lines) << name << ": " << linesOf(bytes).substr(0, 100);
}

TEST(MachOReader, FindsSectionsByName) {
    for (const std::uint32_t cputype : {7u, 0x01000007u}) {
        const auto expectAt = [&](int offset, const MachOImage& image, const char* name) {
            const std::string bytes = image.bytes();
            const TWLMachOSlice slice = {bytes.data(), static_cast<std::int32_t>(cputype), 3, bytes.size()};
            const void* section = &slice;
            TWLMachOSliceGetSectionByName(&slice, name, &section);
            EXPECT_EQ(section, offset ? bytes.data() + offset : nullptr)
                << name << " of CPU type " << cputype;
        };
        const std::uint32_t end = cputype == 7 ? 672 : 808; // the size of the image
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

TEST(MachOReader, FindsSectionsOfACommandThatExceedsTheFile) {
    std::string bytes = MachOImage().segment("__TEXT", {{"x", 5}}).bytes();
    const void* section = nullptr;
    bytes.replace(sizeof(mach_header_64) + 4, 4, littleEndian({0xffffffff})); // the size of the command
    const TWLMachOSlice slice = {bytes.data(), CPU_TYPE_X86_64, 3, bytes.size()};
    TWLMachOSliceGetSectionByName(&slice, "x", &section);
    EXPECT_EQ(section, bytes.data() + 5);
}

const char* const pathBeforeMain = [] {
    const TWLMachOSlice current = TWLMachOSliceGetCurrent();
    return TWLMachOSliceGetExecutablePath(&current);
}();

TEST(MachOReader, DescribesTheRunningExecutable) {
    const TWLMachOSlice current = TWLMachOSliceGetCurrent(), onTheStack = TWLMachOSliceWithHeader(&current);
    EXPECT_STRNE(TWLMachOSliceGetArchitectureName(&current), "unknown");
    EXPECT_STREQ(TWLMachOSliceGetExecutablePath(&current), pathBeforeMain);
    EXPECT_EQ(TWLMachOSliceGetExecutablePath(&onTheStack), nullptr);
    TWLMachOFile file;
    ASSERT_TRUE(TWLMachOFileInitWithCurrent(&file));
    EXPECT_EQ(std::memcmp(file.mappedFile, current.startAddress, 64), 0);
    TWLMachOFileDestroy(&file);
    const bool isMachO = std::memcmp(current.startAddress, "\xCF\xFA\xED\xFE", 4) == 0;
    EXPECT_EQ(::TWLMachOSlice::runningSlice()->uuid().has_value(), isMachO);
}

TEST(MachOReader, FindsTheLastSliceOfAnArchitecture) {
    const support::TemporaryFolder folder;
    const std::string header = universalHeader({{7, 3, 1}, {7, 3, 2}, {12, 9, 3}});
    TWLMachOFile file;
    ASSERT_TRUE(TWLMachOFileInitWithPath(&file, folder.write("universal", header).c_str()));
    EXPECT_EQ(TWLMachOFileSliceWithArchitectureName(&file, "i386").startAddress,
              static_cast<const char*>(file.mappedFile) + 2);
    TWLMachOFileDestroy(&file);
}

TEST(MachOReader, ResetsTheRecordOnlyIfTheFileCannotBeMapped) {
    TWLMachOFile file = {.fd = 77};
    EXPECT_TRUE(!TWLMachOFileInitWithPath(&file, nullptr) && file.fd == 77) << "nothing is stored";
    EXPECT_TRUE(!TWLMachOFileInitWithPath(&file, "/") && file.fd == -1);
}

TEST(MachOReader, DecodesTheEncryptionFlag) {
    EXPECT_TRUE(TWLMachOGetEncrypted(littleEndian({0x21, 20, 1, 1, 0x80000000}).data()));
    EXPECT_FALSE(TWLMachOGetEncrypted(littleEndian({0x21, 20, 1, 1, 0}).data()));
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

const std::string a(32, 'a'), b(32, 'b');
const MachOImage armv7 = MachOImage(12, 9).uuid('\xaa');
const MachOImage arm64 = MachOImage(0x0100000c, 0).uuid('\xbb');

TEST(TWLMachOBinary, ListsItsSlicesInFileOrder) {
    const auto endless = MachOImage(7).sizedCommand(LC_SEGMENT, 0xffffffff, "");
    const auto binary = binaryOf(universalFile({endless, armv7, arm64, MachOImage(12, 9)}));
    EXPECT_EQ(pairsOf(binary), "i386 null\narmv7 " + a + "\narm64 " + b + "\narmv7 null\n");
    EXPECT_EQ(binary->sliceForArchitecture("armv7")->uuid(), a) << "the first one";
    EXPECT_EQ(binary->sliceForArchitecture("x86_64"), nullptr);
}

TEST(TWLMachOBinary, IdentifierIsTheDigestOfTheSortedUUIDs) {
    const auto binary = binaryOf(universalFile({armv7, arm64}));
    for (const char* call : {"first", "second"})
        EXPECT_EQ(binary->instanceIdentifier(), TWLHashNSString(b + a)) << call << ": arm64 before armv7";
    const auto twice = binaryOf(universalFile({MachOImage(12, 9).uuid('\xbb'), armv7}));
    EXPECT_EQ(twice->instanceIdentifier(), TWLHashNSString(a + b)) << "one architecture twice";
    EXPECT_THROW(binaryOf(MachOImage().bytes())->instanceIdentifier(), std::logic_error) << "no UUID";
    EXPECT_EQ(TWLMachOBinary::hashNSString({"abc\0d", 5}), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

/// The only slice of a file with these commands. The file is deleted and only the slice keeps it mapped.
std::shared_ptr<::TWLMachOSlice> sliceOf(const MachOImage& image) {
    return binaryOf(image.bytes())->slices().at(0);
}

TEST(TWLMachOSlice, UsesTheLastUUIDAndMinimumVersions) {
    const auto slice = sliceOf(MachOImage()
                                   .uuid(1)
                                   .versionMin(LC_VERSION_MIN_MACOSX, 0x000a0900, 0x000a0a01)
                                   .uuid('\xfe')
                                   .versionMin(LC_VERSION_MIN_IPHONEOS, 0x00070000, 0xfffffffe)
                                   .versionMin(0x2f, 0x00090000, 0x00090000)); // LC_VERSION_MIN_TVOS
    EXPECT_EQ(slice->uuid()->substr(28), "fefe");
    EXPECT_EQ(TWLMachOFormatVersion(nullptr), std::nullopt);
    EXPECT_EQ(slice->minimumOSVersion(), (TWLMachOVersion{7, 0, 0}));
    EXPECT_EQ(slice->linkedSDKVersion(), (TWLMachOVersion{0xffff, 0xff, 0xfe}));
}

TEST(TWLMachOSlice, ListsOnlyCompleteUTF8PathsOfLoadedDylibs) {
    MachOImage image;
    image.dylib("/b").dylib("/weak", 0x80000018).dylib("/reexported", 0x8000001f).dylib("/not UTF-8\xff");
    image.dylib("/a\xC3\xA9").dylib("/b").command(LC_LOAD_DYLIB, littleEndian({0xffffffff, 0, 0, 0}));
    image.command(LC_LOAD_DYLIB, littleEndian({24, 0, 0, 0}) + "/does not end");
    EXPECT_THAT(sliceOf(image)->linkedDylibs(), testing::ElementsAre("/b", "/a\xC3\xA9", "/b"));
}

TEST(TWLMachOSlice, KeepsItsSectionsMapped) {
    const auto slice = sliceOf(MachOImage().segment("__TEXT", {{"__eh_frame", 1}, {"__unwind_info", 0}}));
    EXPECT_EQ(*static_cast<const unsigned char*>(slice->ehFrameData()), 0xfa);
    EXPECT_EQ(*static_cast<const unsigned char*>(slice->unwindInfoData()), 0xcf);
}

TEST(TWLMachOBinary, OpensFilesOfMoreThan4GiB) {
    const support::TemporaryFolder folder;
    const std::uint32_t offset = 0xfffff001;
    const std::string large = folder.write("large", universalHeader({{7, 3, offset}}));
    std::fstream(large).seekp(offset) << MachOImage().uuid('\x77').bytes();
    std::filesystem::resize_file(large, (std::uintmax_t{4} << 30) + 1000);
    EXPECT_EQ(pairsOf(TWLMachOBinary::MachOBinaryWithPath(large)), "x86_64 " + std::string(32, '7') + "\n");
}

TEST(TWLMachOBinary, OpensOnlyRegularFilesOfAtLeastSixteenBytes) {
    const support::TemporaryFolder folder;
    const std::string file = folder.write("file", std::string(16, '\0'));
    EXPECT_EQ(pairsOf(TWLMachOBinary::MachOBinaryWithPath(file)), "unknown null\n");
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    const int lowestFree = dup(0);
    close(lowestFree);
    for (const std::string& path :
         {folder.path(), folder.path("pipe"), std::string("/dev/zero"), file + std::string("\0x", 2),
          folder.write("short", std::string(15, '\0')), std::string()})
        EXPECT_EQ(TWLMachOBinary::MachOBinaryWithPath(path), nullptr) << path;
    const int next = dup(0);
    close(next);
    EXPECT_EQ(next, lowestFree) << "a descriptor was left open";
}

/// "A B.dSYM", with an empty folder for its Mach-O file.
struct Bundle : support::TemporaryFolder {
    Bundle() { makeFolder("A B.dSYM/Contents/Resources/DWARF"); }

    std::string writeDWARF(const std::string& name, const std::string& bytes) const {
        return write("A B.dSYM/Contents/Resources/DWARF/" + name, bytes);
    }
    std::shared_ptr<TWLdSYM> open() const {
        return TWLdSYM::dSYMWithURL(platform::URL::fileURLWithPath(path("A B.dSYM")));
    }
};

TEST(TWLdSYM, OpensTheFirstEntryThatIsNotHidden) {
    const Bundle bundle;
    EXPECT_EQ(bundle.open(), nullptr) << "no entry";
    bundle.writeDWARF(".DS_Store", std::string(16, '\0'));
    bundle.writeDWARF("c", MachOImage().bytes());
    const std::string file = bundle.writeDWARF("b", MachOImage().uuid('\x11').bytes());
    EXPECT_EQ(bundle.open()->executableURL(), platform::URL::fileURLWithPath(file));
    EXPECT_EQ(bundle.open()->executablePath(), file);
    EXPECT_EQ(pairsOf(bundle.open()), "x86_64 " + std::string(32, '1') + "\n");
}

TEST(TWLdSYM, HasNoExecutableIfTheFirstEntryIsAFolder) {
    const Bundle bundle;
    bundle.writeDWARF("a/file", MachOImage().bytes());
    bundle.writeDWARF("b", MachOImage().bytes());
    EXPECT_FALSE(bundle.open()->executablePath() || bundle.open()->executableURL());
    EXPECT_EQ(pairsOf(bundle.open()), "");
}

TEST(TWLdSYM, ReadsItsInfoPlist) {
    const Bundle bundle;
    bundle.writeDWARF("a", MachOImage().bytes());
    const struct {
        std::string identifier, version;
        std::optional<std::string> bundleIdentifier, bundleVersion;
    } cases[] = {{"<string>com.apple.xcode</string>", "", "com.apple.xcode", std::nullopt},
                 {"<string>com.apple.xcode.dsym.ShopApp</string>", "<integer>7</integer>", "ShopApp", "7"},
                 {"<true/>", "<true/>", std::nullopt, "1"},
                 {"<string/>", "<real>2e6</real>", "", "2000000"},
                 {"<string/>", "<real>0.1234567891</real>", "", "0.1234567891"},
                 {"<string/>", "<array><string>a</string></array>", "", "(\"a\")"}};
    for (const auto& [identifier, version, bundleIdentifier, bundleVersion] : cases) {
        std::string plist = "<plist><dict><key>CFBundleIdentifier</key>" + identifier;
        plist += version.empty() ? "" : "<key>CFBundleVersion</key>" + version;
        bundle.write("A B.dSYM/Contents/Info.plist", plist.append("</dict></plist>"));
        EXPECT_EQ(bundle.open()->bundleIdentifier(), bundleIdentifier) << identifier;
        EXPECT_EQ(bundle.open()->bundleVersion(), bundleVersion) << version;
    }
}

} // namespace
} // namespace macho
