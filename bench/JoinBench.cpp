#include "ditto/DeflateBlocks.h"
#include "ditto/PieceDeflater.h"

#include <libdeflate.h>
#include <stdio.h>
#include <time.h>
#include <zlib.h>

#include <fstream>
#include <span>
#include <stdexcept>
#include <vector>

/// Measures the ways to join the pieces of a file (see tools/ditto/DeflateBlocks.h): join_bench FILE
namespace {

using Bytes = std::vector<std::uint8_t>;

double processorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

struct Cost {
    double seconds = 0;
    std::size_t bytes = 0;

    template <class Step>
    void add(Step step) {
        const double start = processorSeconds();
        bytes += step();
        seconds += processorSeconds() - start;
    }
};

void check(bool isRight) {
    if (!isRight)
        throw std::runtime_error("a library failed");
}

/// Follows a stream from block to block with zlib; the unpacked bytes go to `space`.
std::size_t followWithZlib(std::span<std::uint8_t> stream, Bytes& space) {
    z_stream inflater = {};
    check(inflateInit2(&inflater, -MAX_WBITS) == Z_OK);
    inflater.next_in = stream.data();
    inflater.avail_in = static_cast<uInt>(stream.size());
    inflater.next_out = space.data();
    inflater.avail_out = static_cast<uInt>(space.size());
    int result = Z_OK;
    while (result == Z_OK)
        result = inflate(&inflater, Z_BLOCK);
    inflateEnd(&inflater);
    check(result == Z_STREAM_END);
    return 0;
}

std::size_t deflateWithZlib(Bytes& input, int level, Bytes& output) {
    z_stream deflater = {};
    check(deflateInit2(&deflater, level, Z_DEFLATED, -MAX_WBITS, MAX_MEM_LEVEL - 1, Z_DEFAULT_STRATEGY) ==
          Z_OK);
    deflater.next_in = input.data();
    deflater.avail_in = static_cast<uInt>(input.size());
    deflater.next_out = output.data();
    deflater.avail_out = static_cast<uInt>(output.size());
    check(deflate(&deflater, Z_SYNC_FLUSH) == Z_OK && deflater.avail_in == 0);
    deflateEnd(&deflater);
    return deflater.total_out;
}

void measure(std::istream& file) {
    Cost compressing;
    Cost following;
    Cost followingWithZlib;
    Cost zlib6;
    Cost zlib4;
    libdeflate_compressor* const compressor = libdeflate_alloc_compressor(ditto::compressionLevel);
    Bytes input(ditto::pieceSize);
    Bytes output(2 * ditto::pieceSize);
    while (file.read(reinterpret_cast<char*>(input.data()), static_cast<std::streamsize>(input.size())),
           file.gcount() > 0) {
        input.resize(static_cast<std::size_t>(file.gcount()));
        zlib6.add([&] { return deflateWithZlib(input, 6, output); });
        zlib4.add([&] { return deflateWithZlib(input, 4, output); });
        std::size_t size = 0;
        compressing.add([&] {
            return size = libdeflate_deflate_compress(compressor, input.data(), input.size(), output.data(),
                                                      output.size());
        });
        followingWithZlib.add([&] { return followWithZlib({output.data(), size}, input); });
        following.add([&] { return ditto::continueDeflateStream(output.data(), size) - size; });
    }
    libdeflate_free_compressor(compressor);
    const auto print = [](const char* way, double seconds, std::size_t bytes) {
        printf("%-58s %6.2f s %6.1f MB\n", way, seconds, static_cast<double>(bytes) / 1e6);
    };
    const std::size_t bytes = compressing.bytes + following.bytes;
    printf("Ways to join the pieces of a file (processor time of compressing and joining):\n");
    print("libdeflate, streams followed by DeflateBlocks", compressing.seconds + following.seconds, bytes);
    print("libdeflate, streams followed by zlib's inflate(Z_BLOCK)",
          compressing.seconds + followingWithZlib.seconds, bytes);
    print("zlib at level 4 with deflate(Z_SYNC_FLUSH)", zlib4.seconds, zlib4.bytes);
    print("zlib at level 6 with deflate(Z_SYNC_FLUSH)", zlib6.seconds, zlib6.bytes);
    printf("following alone: DeflateBlocks %.2f s, inflate(Z_BLOCK) %.2f s\n", following.seconds,
           followingWithZlib.seconds);
}

} // namespace

int main(int argc, char** argv) {
    std::ifstream file(argc == 2 ? argv[1] : "", std::ios::binary);
    if (!file) {
        fprintf(stderr, "usage: join_bench FILE\n");
        return 1;
    }
    measure(file);
    return 0;
}
