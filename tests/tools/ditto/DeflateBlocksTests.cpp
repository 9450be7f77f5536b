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

/// Content whose streams hold every kind of block: stored, fixed, dynamic, long codewords, single codewords.
std::vector<std::string> contents() {
    std::mt19937 random(149);
    std::string noise, skewed, words;
    while (noise.size() < 70000)
        noise += static_cast<char>(random());
    while (skewed.size() < 400000) // geometric, so that rare bytes get the longest codewords
        skewed += static_cast<char>(std::geometric_distribution<int>(0.3)(random) * 7);
    while (words.size() < 900000)
        words += "symbol" + std::to_string(random() % 5000) + (random() % 9 ? " " : "\n");
    return {"", "a", "abc", std::string(1 << 20, '\0'), noise, words, skewed, words + noise + skewed};
}

TEST(DeflateBlocks, JoinedStreamsInflateToTheirContentsInARow) {
    const std::unique_ptr<libdeflate_decompressor, void (*)(libdeflate_decompressor*)> decompressor(
        libdeflate_alloc_decompressor(), &libdeflate_free_decompressor);
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
        const std::vector<std::uint8_t> end = deflate("", level);
        joined.insert(joined.end(), end.begin(), end.end());
        std::string content(expected.size(), '\0');
        EXPECT_EQ(libdeflate_deflate_decompress(decompressor.get(), joined.data(), joined.size(),
                                                content.data(), content.size(), nullptr),
                  LIBDEFLATE_SUCCESS);
        EXPECT_TRUE(content == expected) << "level " << level;
    }
}

} // namespace
} // namespace ditto
