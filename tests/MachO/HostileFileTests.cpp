#include "MachO/TWLMachOBinary.h"
#include "RealFiles.h"
#include "fuzz/GuardedReading.h"
#include "fuzz/MachOImage.h"
#include "platform/Files.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

namespace {

std::vector<std::string> fixtures() {
    std::vector<std::string> all = fuzz::sampleMachOFiles();
    const RealFiles files;
    for (const std::string& path : files.paths())
        all.emplace_back(platform::readFile(path)->bytes());
    return all;
}

TEST(HostileFile, EveryTruncationIsReadWithinItsBounds) {
    for (const std::string& bytes : fixtures()) {
        fuzz::GuardedReading reading(bytes.size());
        for (std::size_t size = 0; size <= bytes.size(); ++size)
            ASSERT_TRUE(reading.read({bytes.data(), size})) << size;
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
        fuzz::GuardedReading reading(bytes.size());
        const auto corrupt = [&](std::size_t from) {
            for (std::size_t at = from; at + 4 <= std::min(bytes.size(), from + 1100); at += 4) {
                std::uint32_t word;
                std::memcpy(&word, &bytes[at], 4);
                const std::uint32_t swapped = __builtin_bswap32(word);
                for (const std::uint32_t value :
                     {0u, 1u, 0x7fffffffu, 0xffffff7fu, 0xffffffffu, word + 1, word - 1,
                      __builtin_bswap32(swapped + 1), __builtin_bswap32(swapped - 1)}) {
                    std::memcpy(&bytes[at], &value, 4);
                    ASSERT_TRUE(reading.read(bytes)) << at;
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
    const auto began = std::chrono::steady_clock::now();
    const auto binary = TWLMachOBinary::MachOBinaryWithPath(folder.write("bomb", header + image));
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(1));
    EXPECT_EQ(binary->slices().size(), count);
    std::size_t kept = 0;
    for (const auto& slice : binary->slices())
        kept += slice->linkedDylibs().size();
    EXPECT_THAT(kept,
                testing::AllOf(testing::Ge(2u), testing::Le(TWLMachOSlice::decodingLimit / path.size())));
}

} // namespace
