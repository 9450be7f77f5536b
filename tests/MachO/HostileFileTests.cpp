#include "MachO/TWLMachOBinary.h"
#include "RealFiles.h"
#include "fuzz/MachOImage.h"
#include "platform/Files.h"

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

namespace {

using Clock = std::chrono::steady_clock;

/// Memory behind which the page is not there: whoever reads past its end crashes.
class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t size) : _size((size / page + 1) * page) {
        _start = static_cast<char*>(
            mmap(nullptr, _size + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_EQ(mprotect(_start + _size, page, PROT_NONE), 0);
    }
    ~GuardedMemory() { munmap(_start, _size + page); }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    /// Reads all that there is to read of the bytes, put at the memory's end.
    void read(std::string_view bytes) {
        const char* const end = _start + _size;
        const char* const start = end - bytes.size();
        std::memcpy(_start + _size - bytes.size(), bytes.data(), bytes.size());
        const auto began = Clock::now();
        const auto readSlice = [&](const macho::TWLMachOSlice* record) {
            const auto slice = TWLMachOSlice::initWithSlice(record);
            for (const void* section : {slice->ehFrameData(), slice->unwindInfoData()})
                EXPECT_TRUE(!section || (section >= start && section < end));
        };
        macho::TWLMachOEnumerateSlicesAtAddress(start, readSlice, bytes.size());
        EXPECT_LT(Clock::now() - began, std::chrono::seconds(1));
    }

private:
    static constexpr std::size_t page = 65536;
    std::size_t _size;
    char* _start;
};

std::vector<std::string> fixtures() {
    std::vector<std::string> all = fuzz::sampleMachOFiles();
    const RealFiles files;
    for (const std::string& path : files.paths())
        all.emplace_back(platform::readFile(path)->bytes());
    return all;
}

TEST(HostileFile, EveryTruncationIsReadWithinItsBounds) {
    for (const std::string& bytes : fixtures()) {
        GuardedMemory memory(bytes.size());
        for (std::size_t size = 0; size <= bytes.size(); ++size)
            memory.read({bytes.data(), size});
    }
    const support::TemporaryFolder folder;
    for (const std::string& bytes : fuzz::sampleMachOFiles()) {
        const std::string path = folder.write("file", bytes);
        for (std::size_t size = bytes.size(); size > 0; --size) {
            ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(size)), 0);
            EXPECT_EQ(TWLMachOBinary::MachOBinaryWithPath(path) != nullptr, size >= 16) << size;
        }
    }
}

TEST(HostileFile, EveryCorruptedHeaderWordIsReadWithinBounds) {
    for (std::string bytes : fixtures()) {
        GuardedMemory memory(bytes.size());
        const auto corrupt = [&](std::size_t from) {
            for (std::size_t at = from; at + 4 <= std::min(bytes.size(), from + 1100); at += 4) {
                std::uint32_t word;
                std::memcpy(&word, &bytes[at], 4);
                const std::uint32_t swapped = __builtin_bswap32(word);
                for (const std::uint32_t value :
                     {0u, 1u, 0x7fffffffu, 0xffffff7fu, 0xffffffffu, word + 1, word - 1,
                      __builtin_bswap32(swapped + 1), __builtin_bswap32(swapped - 1)}) {
                    std::memcpy(&bytes[at], &value, 4);
                    memory.read(bytes);
                }
                std::memcpy(&bytes[at], &word, 4);
            }
        };
        std::vector<std::size_t> images = {0};
        const auto addImage = [&](const macho::TWLMachOSlice* slice) {
            images.push_back(
                static_cast<std::size_t>(static_cast<const char*>(slice->startAddress) - bytes.data()));
        };
        macho::TWLMachOEnumerateSlicesAtAddress(bytes.data(), addImage, bytes.size());
        std::for_each(images.begin(), images.end(), corrupt);
    }
}

TEST(HostileFile, OverlappingImagesAndRepeatedPathsStayCheap) {
    const std::uint32_t count = 40000;
    const std::string path(1000000, 'x');
    const std::string command = fuzz::littleEndian({24, 0, 0, 0}) + path + '\0';
    const std::string image =
        fuzz::MachOImage().sizedCommand(0xc, 0, command).commandCount(0xffffffff).bytes();
    const std::string header = fuzz::universalHeader({count, {7, 3, 8 + 20 * count}});
    const support::TemporaryFolder folder;
    const auto began = Clock::now();
    const auto binary = TWLMachOBinary::MachOBinaryWithPath(folder.write("bomb", header + image));
    EXPECT_LT(Clock::now() - began, std::chrono::seconds(1));
    EXPECT_EQ(binary->slices().size(), count);
    std::size_t kept = 0;
    for (const auto& slice : binary->slices())
        kept += slice->linkedDylibs().size();
    EXPECT_THAT(kept,
                testing::AllOf(testing::Ge(2u), testing::Le(TWLMachOSlice::decodingLimit / path.size())));
}

} // namespace
