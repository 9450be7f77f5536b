#include "MachO/TWLHashNSString.h"
#include "MachO/TWLMachOBinary.h"
#include "fuzz/MachOImage.h"
#include "support/TemporaryFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace {

using fuzz::MachOImage;
using testing::ElementsAre;
using testing::Pair;

const support::TemporaryFolder& folder() {
    static const support::TemporaryFolder temporary;
    return temporary;
}

std::shared_ptr<TWLMachOBinary> binaryOf(const std::string& bytes) {
    return TWLMachOBinary::MachOBinaryWithPath(folder().write("a product", bytes));
}

std::string universal(const std::vector<MachOImage>& images) {
    std::vector<fuzz::UniversalEntry> entries;
    std::string bytes;
    for (const MachOImage& image : images) {
        const auto offset = static_cast<std::uint32_t>(8 + 20 * images.size() + bytes.size());
        entries.push_back({7, 3, offset});
        bytes += image.bytes();
    }
    return fuzz::universalHeader(entries) + bytes;
}

std::vector<std::pair<std::optional<std::string>, std::string>> pairsOf(const TWLMachOBinary& binary) {
    std::vector<std::pair<std::optional<std::string>, std::string>> pairs;
    binary.enumerateUUIDs(
        [&](const auto& uuid, const auto& architecture) { pairs.emplace_back(uuid, architecture); });
    return pairs;
}

TEST(TWLMachOBinary, ListsAndIdentifiesItsSlices) {
    const MachOImage armv7 = MachOImage(12, 9).uuid('\xaa');
    const MachOImage arm64 = MachOImage(0x0100000c, 0).uuid('\xbb');
    const std::string a(32, 'a');
    const std::string b(32, 'b');
    const auto binary = binaryOf(universal({armv7, arm64}));
    EXPECT_THAT(pairsOf(*binary), ElementsAre(Pair(a, "armv7"), Pair(b, "arm64")));
    EXPECT_EQ(binary->instanceIdentifier(), TWLHashNSString(b + a));
    EXPECT_EQ(binaryOf(universal({arm64, armv7}))->instanceIdentifier(), TWLHashNSString(b + a));
    EXPECT_EQ(binary->instanceIdentifier(), TWLHashNSString(b + a)) << "the file on disk has changed";
    EXPECT_EQ(binary->sliceForArchitecture("x86_64"), nullptr);
    const auto twins = binaryOf(universal({armv7, MachOImage(12, 9).uuid('\xcc')}));
    EXPECT_EQ(twins->sliceForArchitecture("armv7")->uuid(), a);
    EXPECT_EQ(binary->path(), folder().path("a product"));
    EXPECT_THROW(binaryOf(MachOImage().bytes())->instanceIdentifier(), std::logic_error);
}

TEST(TWLMachOBinary, DecodesTheLastVersionAndUUIDAndEveryLinkedDylib) {
    const std::string unterminated = fuzz::littleEndian({24, 0, 0, 0}) + "/open";
    const auto image = MachOImage()
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
                           .command(0xc, fuzz::littleEndian({0xffffffff, 0, 0, 0}))
                           .command(0xc, unterminated);
    const auto slice = binaryOf(image.bytes())->slices().at(0);
    EXPECT_THAT(slice->linkedDylibs(), ElementsAre("/b", "/a\xC3\xA9", "/b"));
    EXPECT_EQ(slice->minimumOSVersion(), (macho::TWLMachOVersion{7, 0, 0}));
    EXPECT_EQ(slice->linkedSDKVersion(), (macho::TWLMachOVersion{8, 1, 2}));
    EXPECT_THAT(slice->uuid(), testing::Optional(testing::HasSubstr("fefefefe")));

    const auto repeated = MachOImage().sizedCommand(0xc, 0, fuzz::littleEndian({24, 0, 0, 0}) + "/x" + '\0');
    EXPECT_THAT(binaryOf(MachOImage(repeated).commandCount(2).bytes())->slices().at(0)->linkedDylibs(),
                ElementsAre("/x", "/x"));
    for (const std::string& bare : {MachOImage().bytes(), std::string(16, '\0')}) {
        const auto empty = binaryOf(bare)->slices().at(0);
        EXPECT_TRUE(!empty->uuid() && empty->linkedDylibs().empty() && !empty->ehFrameData());
        EXPECT_EQ(empty->minimumOSVersion(), macho::TWLMachOVersion());
    }
}

TEST(TWLMachOSlice, OutlivesItsFile) {
    auto binary = binaryOf(MachOImage().segment("__TEXT", {{"__eh_frame", 1}, {"__unwind_info", 0}}).bytes());
    const auto slice = binary->slices().at(0);
    binary.reset();
    EXPECT_EQ(*static_cast<const unsigned char*>(slice->ehFrameData()), 0xfa);
    EXPECT_EQ(*static_cast<const unsigned char*>(slice->unwindInfoData()), 0xcf);
    const auto running = TWLMachOSlice::runningSlice();
    EXPECT_TRUE(running->architectureName() != "unknown" && !running->uuid() && !running->ehFrameData());
}

TEST(TWLHashNSString, IsTheDigestOfTheTextBeforeItsFirstNUL) {
    EXPECT_EQ(TWLMachOBinary::hashNSString(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(TWLHashNSString(std::string_view("abc\0d", 5)), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

TEST(TWLMachOBinary, IsNullForWhatCannotBeMappedAndPrintsNothing) {
    const std::string pipe = folder().path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
    folder().path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    std::filesystem::create_symlink("nowhere", folder().path("link"));
    const std::string unreadable = folder().write("unreadable", std::string(16, '\0'));
    chmod(unreadable.c_str(), 0);
    std::vector<std::string> paths = {"",
                                      folder().path(),
                                      pipe,
                                      address.sun_path,
                                      folder().path("link"),
                                      "/dev/zero",
                                      "/dev/tty",
                                      folder().write("empty", ""),
                                      folder().write("15", std::string(15, '\0')),
                                      folder().write("16", std::string(16, '\0')) + std::string("\0x", 2)};
    if (geteuid() != 0)
        paths.push_back(unreadable);
    const std::size_t before = openDescriptors();
    testing::internal::CaptureStderr();
    for (const std::string& path : paths)
        EXPECT_EQ(TWLMachOBinary::MachOBinaryWithPath(path), nullptr) << path;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(openDescriptors(), before);
    macho::TWLMachOFile file = {.fd = 77, .mappedSize = 5, .mappedFile = nullptr};
    EXPECT_FALSE(macho::TWLMachOFileInitWithPath(&file, nullptr) || file.fd != 77);
    EXPECT_FALSE(macho::TWLMachOFileInitWithPath(&file, pipe.c_str()) || file.fd != -1 ||
                 file.mappedSize != 0);
    close(listener);
}

TEST(TWLMachOBinary, OpensFilesOfMoreThanFourGigabytes) {
    const std::uint32_t offset = 0xfffff001;
    const std::string path = folder().write("large", fuzz::universalHeader({{7, 3, offset}}));
    const std::string image = MachOImage().uuid('\x77').bytes();
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(pwrite(file, image.data(), image.size(), offset), static_cast<ssize_t>(image.size()));
    ASSERT_EQ(ftruncate(file, (std::int64_t{4} << 30) + 1000), 0);
    close(file);
    EXPECT_THAT(pairsOf(*TWLMachOBinary::MachOBinaryWithPath(path)),
                ElementsAre(Pair(std::string(32, '7'), "x86_64")));
}

} // namespace
