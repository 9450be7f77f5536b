#include "MachO/TWLMachOBinary.h"
#include "RealFiles.h"
#include "platform/Files.h"
#include "fuzz/MachOImage.h"

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

namespace {

using fuzz::MachOImage;

/// Memory whose last byte is the last that may be read: the page behind it is not there.
class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t size) : _size((size / pageSize + 1) * pageSize) {
        _start = static_cast<char*>(
            mmap(nullptr, _size + pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_EQ(mprotect(_start + _size, pageSize, PROT_NONE), 0);
    }
    ~GuardedMemory() { munmap(_start, _size + pageSize); }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    const char* place(std::string_view bytes) {
        return static_cast<const char*>(
            std::memcpy(_start + _size - bytes.size(), bytes.data(), bytes.size()));
    }

private:
    static constexpr std::size_t pageSize = 65536;
    std::size_t _size;
    char* _start;
};

void readEverything(const char* start, std::size_t size) {
    const auto began = std::chrono::steady_clock::now();
    const auto readSlice = [&](const macho::TWLMachOSlice* record) {
        const auto slice = TWLMachOSlice::initWithSlice(record);
        for (const void* section : {slice->ehFrameData(), slice->unwindInfoData()})
            EXPECT_TRUE(!section || (section >= start && section < start + size));
        EXPECT_EQ(slice->uuid().value_or(std::string(32, '0')).size(), 32u);
        EXPECT_FALSE(slice->architectureName().empty());
    };
    macho::TWLMachOEnumerateSlicesAtAddress(start, readSlice, size);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(1));
}

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
            readEverything(memory.place({bytes.data(), size}), size);
    }
}

TEST(HostileFile, EveryTruncatedFileOpensOrFailsCleanly) {
    const support::TemporaryFolder folder;
    for (const std::string& bytes : fuzz::sampleMachOFiles()) {
        const std::string path = folder.write("file", bytes);
        for (std::size_t size = bytes.size(); size > 0; --size) {
            ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(size)), 0);
            EXPECT_EQ(TWLMachOBinary::MachOBinaryWithPath(path) != nullptr, size >= 16) << size;
        }
    }
}

/// Where words of headers and load commands stand: at the start of the file and of each image.
std::vector<std::size_t> headerWords(const std::string& bytes) {
    std::vector<std::size_t> words;
    const auto addWords = [&](std::size_t from) {
        for (std::size_t word = from; word + 4 <= std::min(bytes.size(), from + 1100); word += 4)
            words.push_back(word);
    };
    addWords(0);
    macho::TWLMachOEnumerateSlicesAtAddress(
        bytes.data(),
        [&](const macho::TWLMachOSlice* slice) {
            if (slice->startAddress > bytes.data())
                addWords(
                    static_cast<std::size_t>(static_cast<const char*>(slice->startAddress) - bytes.data()));
        },
        bytes.size());
    return words;
}

TEST(HostileFile, EveryCorruptedHeaderWordIsReadWithinBounds) {
    for (std::string bytes : fixtures()) {
        GuardedMemory memory(bytes.size());
        for (const std::size_t position : headerWords(bytes)) {
            std::uint32_t word;
            std::memcpy(&word, &bytes[position], 4);
            const std::uint32_t swapped = __builtin_bswap32(word);
            for (const std::uint32_t value :
                 {0u, 1u, 0x7fffffffu, 0xffffffffu, word + 1, word - 1, __builtin_bswap32(swapped + 1),
                  __builtin_bswap32(swapped - 1)}) {
                std::memcpy(&bytes[position], &value, 4);
                readEverything(memory.place(bytes), bytes.size());
            }
            std::memcpy(&bytes[position], &word, 4);
        }
    }
}

TEST(HostileFile, OverlappingImagesAndRepeatedPathsStayCheap) {
    const std::uint32_t count = 40000;
    const std::string path(1000000, 'x');
    const std::string repeated = fuzz::littleEndian({24, 0, 0, 0}) + path + '\0';
    const std::string image = MachOImage().sizedCommand(0xc, 0, repeated).commandCount(0xffffffff).bytes();
    const std::vector<fuzz::UniversalEntry> entries(count, {7, 3, 8 + 20 * count});
    const support::TemporaryFolder folder;
    const auto began = std::chrono::steady_clock::now();
    const auto binary =
        TWLMachOBinary::MachOBinaryWithPath(folder.write("bomb", fuzz::universalHeader(entries) + image));
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(1));
    EXPECT_EQ(binary->slices().size(), count);
    std::size_t kept = 0;
    for (const auto& slice : binary->slices())
        kept += slice->linkedDylibs().size();
    EXPECT_THAT(kept,
                testing::AllOf(testing::Ge(2u), testing::Le(TWLMachOSlice::decodingLimit / path.size())));
}

} // namespace
