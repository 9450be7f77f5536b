#include "MachO/TWLHashNSString.h"
#include "MachO/TWLMachOBinary.h"
#include "fuzz/MachOImage.h"
#include "support/TemporaryFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace {

using fuzz::littleEndian;
using fuzz::MachOImage;
using testing::ElementsAre;

struct TWLMachOBinaryTest : testing::Test, support::TemporaryFolder {
    std::shared_ptr<TWLMachOBinary> binaryOf(const std::string& bytes) const {
        return TWLMachOBinary::MachOBinaryWithPath(write("a product", bytes));
    }
    std::shared_ptr<TWLMachOBinary> universal(const MachOImage& first, const MachOImage& second) const {
        const auto offset = static_cast<std::uint32_t>(48 + first.bytes().size());
        return binaryOf(fuzz::universalHeader({{7, 3, 48}, {7, 3, offset}}) + first.bytes() + second.bytes());
    }
};

TEST_F(TWLMachOBinaryTest, ListsAndIdentifiesItsSlices) {
    const MachOImage armv7 = MachOImage(12, 9).uuid('\xaa');
    const MachOImage arm64 = MachOImage(0x0100000c, 0).uuid('\xbb');
    const std::string a(32, 'a'), b(32, 'b');
    const auto binary = universal(armv7, arm64);
    std::string pairs;
    binary->enumerateUUIDs([&](const auto& uuid, const auto& name) { pairs += name + " " + *uuid + "\n"; });
    EXPECT_EQ(pairs, "armv7 " + a + "\narm64 " + b + "\n");
    EXPECT_EQ(binary->path(), path("a product"));
    EXPECT_EQ(binary->instanceIdentifier(), TWLHashNSString(b + a));
    EXPECT_EQ(universal(arm64, armv7)->instanceIdentifier(), TWLHashNSString(b + a));
    EXPECT_EQ(binary->instanceIdentifier(), TWLHashNSString(b + a)) << "the file on disk has changed";
    EXPECT_EQ(binary->sliceForArchitecture("x86_64"), nullptr);
    EXPECT_EQ(universal(armv7, MachOImage(12, 9).uuid('\xcc'))->sliceForArchitecture("armv7")->uuid(), a);
    EXPECT_THROW(universal(armv7, MachOImage())->instanceIdentifier(), std::logic_error);
    EXPECT_EQ(TWLMachOBinary::hashNSString(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(TWLHashNSString(std::string_view("abc\0d", 5)), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST_F(TWLMachOBinaryTest, DecodesTheLastVersionAndUUIDAndEveryLinkedDylib) {
    const MachOImage image = MachOImage()
                                 .uuid(1)
                                 .versionMin(0x24, 0x000a0900, 0x000a0a01)
                                 .dylib("/b")
                                 .dylib("/weak", 0x80000018)
                                 .dylib("/a\xC3\xA9")
                                 .dylib("/not UTF-8\xff")
                                 .dylib("/b")
                                 .dylib("/reexported", 0x8000001f)
                                 .versionMin(0x25, 0x00070000, 0x00080102)
                                 .versionMin(0x2f, 0x00090000, 0x00090000)
                                 .uuid('\xfe')
                                 .command(0xc, littleEndian({0xffffffff, 0, 0, 0}))
                                 .command(0xc, littleEndian({24, 0, 0, 0}) + "/does not end");
    const auto slice = binaryOf(image.bytes())->slices().at(0);
    EXPECT_THAT(slice->linkedDylibs(), ElementsAre("/b", "/a\xC3\xA9", "/b"));
    EXPECT_EQ(slice->minimumOSVersion(), (macho::TWLMachOVersion{7, 0, 0}));
    EXPECT_EQ(slice->linkedSDKVersion(), (macho::TWLMachOVersion{8, 1, 2}));
    EXPECT_THAT(slice->uuid(), testing::Optional(testing::StartsWith("fefe")));

    const std::string dylib = littleEndian({24, 0, 0, 0}) + "/x" + '\0';
    const std::string repeated = MachOImage().sizedCommand(0xc, 0, dylib).commandCount(2).bytes();
    EXPECT_THAT(binaryOf(repeated)->slices().at(0)->linkedDylibs(), ElementsAre("/x", "/x"));
    for (const std::string& bare : {MachOImage().bytes(), std::string(16, '\0')}) {
        const auto empty = binaryOf(bare)->slices().at(0);
        EXPECT_TRUE(!empty->uuid() && empty->linkedDylibs().empty() && !empty->ehFrameData());
        EXPECT_EQ(empty->minimumOSVersion(), macho::TWLMachOVersion());
    }
}

TEST_F(TWLMachOBinaryTest, SlicesOutliveTheirFile) {
    const auto image = MachOImage().segment("__TEXT", {{"__eh_frame", 1}, {"__unwind_info", 0}});
    const auto slice = binaryOf(image.bytes())->slices().at(0);
    EXPECT_EQ(*static_cast<const unsigned char*>(slice->ehFrameData()), 0xfa);
    EXPECT_EQ(*static_cast<const unsigned char*>(slice->unwindInfoData()), 0xcf);
    const auto running = TWLMachOSlice::runningSlice();
    EXPECT_TRUE(running->architectureName() != "unknown" && !running->uuid() && !running->ehFrameData());
}

TEST_F(TWLMachOBinaryTest, IsNullForWhatCannotBeMappedAndPrintsNothing) {
    const std::string zeros(16, '\0');
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600) + mknod(path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    std::filesystem::create_symlink("nowhere", path("link"));
    const std::string unreadable = write("unreadable", zeros), sixteen = write("16", zeros);
    ASSERT_EQ(chmod(unreadable.c_str(), 0), 0);
    std::vector<std::string> paths = {"",
                                      path(),
                                      path("pipe"),
                                      path("socket"),
                                      path("link"),
                                      "/dev/zero",
                                      write("empty", ""),
                                      write("15", zeros.substr(1)),
                                      "/dev/tty",

                                      sixteen + std::string("\0x", 2)};
    if (geteuid() != 0)
        paths.push_back(unreadable);
    const auto openDescriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = openDescriptors();
    testing::internal::CaptureStderr();
    for (const std::string& each : paths)
        EXPECT_EQ(TWLMachOBinary::MachOBinaryWithPath(each), nullptr) << each;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(openDescriptors(), before);
    macho::TWLMachOFile file = {.fd = 77, .mappedSize = 5, .mappedFile = nullptr};
    EXPECT_TRUE(!macho::TWLMachOFileInitWithPath(&file, nullptr) && file.fd == 77);
    EXPECT_TRUE(!macho::TWLMachOFileInitWithPath(&file, path("pipe").c_str()) && file.fd == -1);
}

TEST_F(TWLMachOBinaryTest, OpensFilesOfMoreThanFourGigabytes) {
    const std::uint32_t offset = 0xfffff001;
    const std::string large = write("large", fuzz::universalHeader({{7, 3, offset}}));
    const std::string image = MachOImage().uuid('\x77').bytes();
    const int file = open(large.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(pwrite(file, image.data(), image.size(), offset), static_cast<ssize_t>(image.size()));
    EXPECT_EQ(ftruncate(file, (std::int64_t{4} << 30) + 1000), 0);
    close(file);
    EXPECT_EQ(TWLMachOBinary::MachOBinaryWithPath(large)->slices().at(0)->uuid(), std::string(32, '7'));
}

} // namespace
