#include "ditto/DeflateBlocks.h"

#include <gtest/gtest.h>
#include <libdeflate.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace ditto {
namespace {

/// Exactly as long as the stream and its padding, so that a sanitizer sees every byte read behind them.
std::vector<std::uint8_t> deflate(const std::string& content, int level) {
    const std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)> compressor(
        libdeflate_alloc_compressor(level), &libdeflate_free_compressor);
    std::vector<std::uint8_t> stream(libdeflate_deflate_compress_bound(compressor.get(), content.size()));
    stream.resize(libdeflate_deflate_compress(compressor.get(), content.data(), content.size(), stream.data(),
                                              stream.size()));
    return stream;
}

std::string inflate(const std::vector<std::uint8_t>& stream, std::size_t size) {
    const std::unique_ptr<libdeflate_decompressor, void (*)(libdeflate_decompressor*)> decompressor(
        libdeflate_alloc_decompressor(), &libdeflate_free_decompressor);
    std::string content(size, '\0');
    const auto outcome = libdeflate_deflate_decompress(decompressor.get(), stream.data(), stream.size(),
                                                       content.data(), size, nullptr);
    return outcome == LIBDEFLATE_SUCCESS ? content : "broken stream";
}

/// Content whose streams hold every kind of block: stored, fixed, dynamic, long codewords, single codewords.
std::vector<std::string> contents() {
    std::mt19937 random(149);
    std::string noise(70000, '\0');
    for (char& byte : noise)
        byte = static_cast<char>(random());
    std::string skewed;
    while (skewed.size() < 400000) // geometric, so that rare bytes get the longest codewords
        skewed += static_cast<char>(std::geometric_distribution<int>(0.3)(random) * 7);
    std::string words;
    while (words.size() < 900000)
        words += "symbol" + std::to_string(random() % 5000) + (random() % 9 ? " " : "\n");
    return {"",    "a",   "abc",  std::string(300, 'a'), std::string(1 << 20, '\0'),
            noise, words, skewed, words + noise + skewed};
}

TEST(DeflateBlocks, JoinedStreamsInflateToTheirContentsInARow) {
    for (const int level : {0, 1, 6, 9, 12}) {
        std::vector<std::uint8_t> joined;
        std::string expected;
        for (const std::string& content : contents()) {
            std::vector<std::uint8_t> stream = deflate(content, level);
            const std::size_t size = stream.size();
            stream.resize(size + deflateContinuationSize + deflateStreamPadding);
            stream.resize(continueDeflateStream(stream.data(), size));
            joined.insert(joined.end(), stream.begin(), stream.end());
            expected += content;
        }
        const std::vector<std::uint8_t> end = deflate("the end", level);
        joined.insert(joined.end(), end.begin(), end.end());
        EXPECT_EQ(inflate(joined, expected.size() + 7), expected + "the end") << "level " << level;
    }
}

} // namespace
} // namespace ditto
