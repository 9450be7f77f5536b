#include "MachO/TWLdSYM.h"
#include "platform/files/Files.h"
#include "platform/process/MappedFiles.h"
#include "support/ChildProcess.h"
#include "support/MachOImage.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <cstring>
#include <ctime>
#include <filesystem>

namespace {

using support::outputOf;

/// Objects, executables, universal files and a dSYM bundle, made by the llvm tools.
struct RealFiles : support::TemporaryFolder {
    RealFiles() { outputOf(SCRIPTS "/make-mach-o-files " + path()); }

    static constexpr const char* names[] = {"arm64.o",  "x86_64.o", "armv7.o",
                                            "armv7s.o", "objects",  "arm64",
                                            "x86_64",   "app",      "app.dSYM/Contents/Resources/DWARF/app"};
};

/// The output of lipo, dwarfdump and objdump for a file, with UUIDs and versions in our format.
std::string theirLines(const std::string& path) {
    return outputOf("PATH=$(" SCRIPTS "/llvm-bin):$PATH; f=" + path + R"(
        llvm-lipo $f -archs
        llvm-dwarfdump --uuid $f | awk '{ gsub("-", "", $2); print tolower($2), $3 }'
        llvm-objdump --macho --private-headers --arch all $f | awk '
            $1 == "cmd" { cmd = $2 }
            cmd == "LC_LOAD_DYLIB" && $1 == "name" { print $2 }
            cmd ~ /^LC_VERSION_MIN_/ && ($1 == "version" || $1 == "sdk") {
                print $2 == "n/a" ? "0.0.0" : split($2, parts, ".") == 2 ? $2 ".0" : $2 }')");
}

/// The same from the output of the example program "symbols".
std::string ourLines(const std::string& path) {
    return outputOf(SYMBOLS " " + path + R"( | awk '
        $1 == "architectureName:" { name = $2; names = names name " " }
        $1 == "uuid:" && $2 != "none" { uuids = uuids $2 " (" name ")\n" }
        $1 == "minimumOSVersion:" { hasVersions = $2 != "0.0.0" }
        /^(minimumOSVersion|linkedSDKVersion):/ && hasVersions { lines = lines $2 "\n" }
        /^  / { lines = lines $1 "\n" }
        END { print names; printf "%s", uuids lines }')");
}

TEST(RealFile, IsReadAsLLVMToolsReadIt) {
    const RealFiles files;
    for (const char* name : RealFiles::names)
        EXPECT_EQ(ourLines(files.path(name)), theirLines(files.path(name))) << name;
}

TEST(Symbols, PrintsSlicesAndComparesUUIDs) {
    const RealFiles files;
    const std::string symbols = "cd " + files.path() + " && " SYMBOLS " ";
    EXPECT_THAT(outputOf(symbols + "app app.dSYM"), testing::EndsWith("\n\nUUIDs match.\n"));
    EXPECT_THAT(outputOf(symbols + "app arm64"), testing::EndsWith("\n\nOnly some UUIDs match.\n"));
    EXPECT_THAT(outputOf(symbols + "--json app.dSYM | python3 -m json.tool"), testing::HasSubstr("\"1.0\""));
    const support::Ending ending = support::runShell(symbols + "libSystem.tbd app");
    EXPECT_EQ(ending.status, 1);
    EXPECT_EQ(ending.standardError,
              "libSystem.tbd cannot be read: it is not a Mach-O file or a dSYM bundle that contains one.\n");
}

/// The samples of the fuzz targets and some real files.
std::vector<std::string> validFiles() {
    std::vector<std::string> all = support::sampleMachOFiles();
    for (const RealFiles files; const char* name : {"arm64.o", "objects", "app"})
        all.emplace_back(platform::readFile(files.path(name))->bytes());
    return all;
}

TEST(HostileFile, TruncatedFilesAreReadWithinBounds) {
    for (const std::string& bytes : validFiles())
        for (std::size_t size = 0; size <= bytes.size(); ++size)
            ASSERT_TRUE(support::readGuarded({bytes.data(), size})) << size;
}

TEST(HostileFile, CorruptedFilesAreReadWithinBounds) {
    for (std::string& bytes : validFiles()) {
        // Words at all offsets, because the last image of a sample is at an odd offset.
        for (std::size_t at = 0; at + 4 <= std::min<std::size_t>(bytes.size(), 1100); ++at) {
            const std::string word = bytes.substr(at, 4);
            for (const std::uint32_t value : {0u, 1u, 0x7fffffffu, 0xffffff7fu, 0xffffffffu}) {
                std::memcpy(&bytes[at], &value, 4);
                ASSERT_TRUE(support::readGuarded(bytes)) << value << " at offset " << at;
            }
            bytes.replace(at, 4, word);
        }
    }
}

TEST(HostileFile, OverlappingImagesAndRepeatedPathsTakeLittleTime) {
    const std::uint32_t count = 40000;
    const std::string command = support::littleEndian({24, 0, 0, 0}) + std::string(1000000, 'x') + '\0';
    const auto image = support::MachOImage().sizedCommand(0xc, 0, command).commandCount(0xffffffff);
    const std::string header = support::universalHeader({count, {7, 3, 8 + 20 * count}});
    const support::TemporaryFolder folder;
    const std::string path = folder.write("bomb", header + image.bytes());
    const std::clock_t began = std::clock();
    const auto binary = TWLMachOBinary::MachOBinaryWithPath(path);
    for (const auto& slice : binary->slices())
        EXPECT_TRUE(!slice->ehFrameData() && !slice->unwindInfoData());
    // Processor time, with a reserve for sanitizers. Without limits the work would take hours.
    EXPECT_LT(std::clock() - began, 20 * CLOCKS_PER_SEC);
    EXPECT_EQ(binary->slices().size(), count);
    EXPECT_THAT(binary->slices()[0]->linkedDylibs(), testing::SizeIs(testing::Ge(2u)));
}

TEST(LargeFile, IsDecodedWithoutLimits) {
    support::MachOImage image;
    for (int i = 0; i < 80'000; ++i)
        image.dylib(std::string(220, 'x'));
    const support::TemporaryFolder folder;
    const std::string path = folder.write("large", image.uuid('\x11').bytes());
    const auto slice = TWLMachOBinary::MachOBinaryWithPath(path)->slices()[0];
    EXPECT_EQ(slice->linkedDylibs().size(), 80'000u);
    EXPECT_TRUE(slice->uuid()) << "the last command";
}

TEST(TruncatedFile, EndsTheProcessWithAMessageWhileItIsMapped) {
    const support::TemporaryFolder folder;
    const std::string path = folder.write("a", std::string(100'000, 'a'));
    macho::TWLMachOFile file;
    ASSERT_TRUE(TWLMachOFileInitWithPath(&file, path.c_str()));
    std::filesystem::resize_file(path, 0);
    EXPECT_EXIT(
        (platform::exitIfAMappedFileIsTruncated(), TWLMachOFileEnumerateSlices(&file, [](const auto*) {})),
        testing::ExitedWithCode(1), "truncated a file");
    TWLMachOFileDestroy(&file);
}

} // namespace
