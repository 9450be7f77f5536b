#include "ditto/DeflateBlocks.h"
#include "ditto/ZipWriter.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

namespace {

using support::TemporaryFolder;
using testing::HasSubstr;
using testing::StartsWith;

/// Runs a shell command in `folder` with "$D" as the archiver. Returns standard output and standard error.
support::Ending shell(const TemporaryFolder& folder, const std::string& script) {
    return support::runShell(
        "cd '" + folder.path() +
        "' && exec 2>&1; export LC_ALL=C.UTF-8; D='" DITTO_PATH " -c -k --keepParent'; " + script);
}

/// A bundle with all kinds of entries and files around each size that the archiver treats differently.
/// "skewed" contains bytes that are rare enough to get the longest codewords.
void makeBundle(const TemporaryFolder& folder) {
    folder.write("source/My App.app.dSYM/Contents/d\xC3\xA9j\xC3\xA0/\xF0\x9F\x8D\x8E", "UTF-8");
    const auto made = shell(folder, R"(set -e
        cd 'source/My App.app.dSYM/Contents'
        mkdir DWARF a many 'empty folder'
        seq 900000 | head -c 3145745 >'DWARF/My App'
        seq 900000 | head -c 2097152 >'DWARF/exactly two pieces'
        head -c 1048577 /dev/urandom >DWARF/incompressible
        head -c 5242880 /dev/zero >DWARF/zeros
        python3 -c 'import random, sys; random.seed(149)
sys.stdout.buffer.write(bytes(int(random.expovariate(0.4)) * 7 % 256 for i in range(1200000)))' >DWARF/skewed
        head -c 5000 /dev/urandom >noise
        : >empty; printf x >'one byte'; echo before a/ >a!; echo inside >a/b; echo between >a.txt
        echo long name >$(printf %0255d 0)
        touch $(seq -f many/%.0f 100)
        ln -s ../../../outside link; ln -s DWARF 'link to folder'; ln -s $(printf %01000d 0) 'long link'
        chmod 400 empty; chmod 4751 'one byte'; chmod 1700 'empty folder'
        touch -d @315532801 noise; touch -d @0 a!; touch -d @2147483647 'empty folder'
        touch -d @1000000001 DWARF; touch -hd @1234567890 link)");
    EXPECT_EQ(made.status, 0) << made.standardOutput;
}

TEST(Ditto, OtherToolsUnpackTheSameTree) {
    const TemporaryFolder folder;
    makeBundle(folder);
    // unzip does not restore the time of a link; bsdtar restores the set-user-ID bit only for root.
    const auto packed = shell(folder, R"sh(set -e
        mkdir tar zip; $D 'source/My App.app.dSYM' A
        unzip -tqq A; bsdtar -xpf A -C tar; unzip -qqK A -d zip; python3 -m zipfile -t A >/dev/null
        list() { (cd $1 && find -mindepth 2 -type l -printf "%P %l $2\n" -o -printf '%P %M %Ts\n' | sort); }
        for unpacked in tar zip; do diff -r --no-dereference source $unpacked; done
        [ "$(list source)" = "$(list zip)" ]
        [ "$(list source %Ts | tr s x)" = "$(list tar %Ts | tr s x)" ]
        mkdir S; echo a >S/$(printf '\351'); echo b >S/$(printf '\352'); echo c >S/$(printf '\357\277\275')
        ln -s S link; $D link L; unzip -qq L -d out; diff -r S out/link)sh");
    EXPECT_EQ(packed.status, 0);
    EXPECT_EQ(packed.standardOutput, "");
}

TEST(Ditto, TheSameBundleGivesTheSameBytes) {
    const TemporaryFolder folder;
    makeBundle(folder);
    const auto outcome = shell(
        folder,
        "cd source; B='My App.app.dSYM'; $D \"$B\" ../1 && (ulimit -n 64; TZ=Asia/Tokyo $D \"./$B///\" ../2) && "
        "taskset 1 $D \"$B/Contents/..\" ../3 && cd .. && cmp 1 2 && cmp 1 3 && python3 -c '"
        "import zipfile; names = [n.encode() for n in zipfile.ZipFile(\"1\").namelist()]; "
        "print(names == sorted(names), {n.split(b\"/\")[0] for n in names})'");
    EXPECT_EQ(outcome.standardOutput, "True {b'My App.app.dSYM'}\n");
}

/// The archives of large files contain all kinds of blocks except these: without symbols, with literals of
/// eight and nine bits, and with matches. In the last two, the last byte has no room for a block header.
TEST(DeflateBlocks, ContinuesFixedBlocksAndRefusesTruncatedStreams) {
    using namespace std::string_literals;
    const std::pair<std::string, std::string> cases[] = {
        {"\x03\0"s, "\x02\0"s},
        {"\x4B\x04\0"s, "\x4A\x04\0"s},
        {"\xFB\xFF\xEF\xEF\x1F\0"s, "\xFA\xFF\xEF\xEF\x1F\0\0"s},
        {"\xFB\xFF\x7F\x14\x10\x0B\0"s, "\xFA\xFF\x7F\x14\x10\x0B\0\0"s}};
    for (const auto& [stream, continued] : cases) {
        std::vector<std::uint8_t> bytes(stream.begin(), stream.end());
        bytes.resize(stream.size() + ditto::deflateContinuationSize + ditto::deflateStreamPadding);
        EXPECT_THROW(ditto::continueDeflateStream(bytes.data(), stream.size() - 1), std::logic_error);
        bytes.resize(ditto::continueDeflateStream(bytes.data(), stream.size()));
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), continued + "\0\0\xFF\xFF"s);
    }
}

/// Collects bits, the lowest bit of each byte first.
struct BitWriter {
    std::string bytes = {};
    unsigned used = 0;

    void put(unsigned value, unsigned count) {
        for (; count > 0; --count, value >>= 1, ++used) {
            if (used % 8 == 0)
                bytes += '\0';
            bytes.back() = static_cast<char>(bytes.back() | static_cast<int>(value & 1) << used % 8);
        }
    }
    void putCodeword(unsigned value, unsigned count) {
        while (count > 0)
            put(value >> --count, 1);
    }
};

/// A stream of a fixed block with one match and of an empty fixed block. A reader that skips too many or too
/// few extra bits misses the end of the first block, because all extra bits and the next block's mark are
/// set.
std::string oneMatch(unsigned lengthSymbol, unsigned lengthExtra, unsigned distance, unsigned distanceExtra) {
    BitWriter stream;
    stream.put(0b010, 3);
    if (lengthSymbol < 280)
        stream.putCodeword(lengthSymbol - 256, 7);
    else
        stream.putCodeword(lengthSymbol - 280 + 0xC0, 8);
    stream.put(~0U, lengthExtra);
    stream.putCodeword(distance, 5);
    stream.put(~0U, distanceExtra);
    stream.put(0, 7);
    stream.put(0b011, 3);
    stream.put(0, 7);
    return stream.bytes;
}

TEST(DeflateBlocks, JoinsStreamsOfAllLengthsAndDistances) {
    const TemporaryFolder folder;
    std::string joined;
    const auto add = [&](const std::string& stream) {
        std::string bytes = stream + std::string(ditto::deflateContinuationSize, '\0');
        bytes.append(ditto::deflateStreamPadding, '\xFF');
        bytes.resize(
            ditto::continueDeflateStream(reinterpret_cast<std::uint8_t*>(bytes.data()), stream.size()));
        joined += bytes;
    };
    add(std::string("\x01\0\x80\xFF\x7F", 5) + std::string(32768, 'x'));
    for (unsigned symbol = 257; symbol < 286; ++symbol)
        add(oneMatch(symbol, symbol < 265 || symbol == 285 ? 0 : (symbol - 261) / 4, 0, 0));
    for (unsigned symbol = 0; symbol < 30; ++symbol)
        add(oneMatch(257, 0, symbol, symbol < 4 ? 0 : symbol / 2 - 1));
    folder.write("joined", joined + std::string("\x01\0\0\xFF\xFF", 5));
    const auto read = shell(folder, "python3 -c 'import zlib; d = zlib.decompressobj(-15); "
                                    "print(len(d.decompress(open(\"joined\", \"rb\").read())), d.eof)'");
    // 32768 + 1962 for one match of each length symbol + 30 * 3
    EXPECT_EQ(read.standardOutput, "34820 True\n");
}

TEST(ZipWriter, Writes64BitRecordsForManyEntriesAndLargeFiles) {
    const TemporaryFolder folder;
    ditto::ArchiveFile file(folder.path("A"));
    ditto::ZipWriter writer(file);
    writer.begin({.name = "huge", .mode = S_IFREG | 0644, .size = std::uint64_t{5} << 30});
    writer.append("x");
    writer.end(0);
    for (int i = 0; i < 66000; ++i) {
        writer.begin({.name = std::to_string(i), .mode = S_IFREG | 0644});
        writer.end(0);
    }
    writer.finish();
    file.commit();
    const auto read =
        shell(folder, "python3 -c 'import struct, zipfile; z = zipfile.ZipFile(\"A\"); i = z.infolist(); "
                      "print(len(i), i[-1].filename, z.read(i[-1]), i[0].file_size, i[0].compress_size, "
                      "struct.unpack_from(\"<LLHH4sHHQQ\", open(\"A\", \"rb\").read(), 18), "
                      "open(\"A\", \"rb\").read()[-42:-38])'");
    EXPECT_EQ(read.standardOutput,
              "66001 65999 b'' 5368709120 1 "
              "(4294967295, 4294967295, 4, 29, b'huge', 1, 16, 5368709120, 1) b'PK\\x06\\x07'\n");
}

TEST(Ditto, PrintsItsUsage) {
    const TemporaryFolder folder;
    for (const char* arguments :
         {"", "-c -k --keepParent S A more", "-k -c --keepParent S A", "-c -k --keepParent '' A"}) {
        const auto outcome = shell(folder, DITTO_PATH + std::string(" ") + arguments + " >/dev/null");
        EXPECT_EQ(outcome.status, 64) << arguments;
        EXPECT_EQ(outcome.standardOutput, "usage: ditto -c -k --keepParent SOURCE ARCHIVE\n");
    }
}

TEST(Ditto, ReportsFailuresAndKeepsTheOldArchive) {
    const std::pair<const char*, const char*> cases[] = {
        {"$D missing A", "cannot open missing: No such file or directory\n"},
        {"$D S missing/A", "cannot create missing/A: No such file or directory\n"},
        {"$D S S/sub/deep", "it is inside S; choose another folder\n"},
        {"$D file file", "cannot write file"},
        {"$D S /dev/null",
         "cannot write /dev/null: it exists and is not a regular file; choose another name\n"},
        {"$D / A", "cannot archive \"/\": it has no name; archive a folder inside it\n"},
        {"$D /dev/null A", "cannot archive /dev/null: it is not a folder or a regular file\n"},
        {"mkfifo S/z; $D S A", "S/z is not a folder, regular file or link; remove it from the bundle\n"},
        {"ulimit -f 64; $D S A", "cannot write A: File too large\n"},
        {"chmod 0 S/sub/deep; $U $D S A", "cannot open S/sub/deep: Permission denied\n"},
        {"chmod 500 folder; $U $D S folder/A", "cannot create folder/A: Permission denied\n"}};
    // Root may open all files unless it drops that capability.
    const std::string setUp = geteuid() == 0 ? "U='setpriv --bounding-set=-all'; " : "U=; ";
    for (const auto& [script, message] : cases) {
        const TemporaryFolder folder;
        ASSERT_EQ(shell(folder,
                        "mkdir -p S/sub folder; head -c 3M /dev/urandom >S/noise; echo deep >S/sub/deep; "
                        "printf 'what was there' | tee A >file")
                      .status,
                  0);
        const auto outcome = shell(folder, setUp + "{ " + script + "; } >/dev/null");
        EXPECT_EQ(outcome.status, 1) << script;
        EXPECT_THAT(outcome.standardOutput, AllOf(StartsWith("ditto: "), HasSubstr(message)));
        EXPECT_EQ(shell(folder, "rm -f S/z; chmod -R u=rwX .; cat A file; ls -A . S folder").standardOutput,
                  "what was therewhat was there.:\nA\nS\nfile\nfolder\n\nS:\nnoise\nsub\n\nfolder:\n")
            << script;
    }
}

/// An archiver that runs on a file so large that it cannot finish during the test.
TEST(Ditto, LeavesNothingAfterASignalOrAChangedFile) {
    const std::string changed = "ditto: S/sub/huge changed while it was being archived; archive it again\n";
    const std::tuple<const char*, int, std::string> cases[] = {
        {"kill $1", 128 + SIGTERM, ""},
        {"truncate -s 1 S/sub/huge", 1, changed},
        {"kill -STOP $1; truncate -s +1 S/sub/huge; touch -d @1000000000.5 S/sub/huge; kill -CONT $1", 1,
         changed},
        {"touch -d @1000000000.4 S/sub/huge", 1, changed}};
    for (const auto& [disturbance, status, message] : cases) {
        const TemporaryFolder folder;
        folder.write("archives/A", "what was there");
        folder.makeFolder("S/sub");
        ASSERT_EQ(shell(folder, "truncate -s 1T S/sub/huge && touch -d @1000000000.5 S/sub/huge").status, 0);
        support::ChildProcess archiver(
            {.arguments = {DITTO_PATH, "-c", "-k", "--keepParent", "S", "archives/A"},
             .workingDirectory = folder.path()});
        std::string script = "set -- " + std::to_string(archiver.identifier());
        script += "; until [ -s archives/.ditto-* ] || grep -q ') Z' /proc/$1/stat; do :; done; ";
        shell(folder, script.append(disturbance));
        const support::Ending ending = archiver.wait();
        EXPECT_EQ(ending.status, status) << disturbance;
        EXPECT_EQ(ending.standardError, message) << disturbance;
        EXPECT_EQ(shell(folder, "cat archives/A; ls -A archives").standardOutput, "what was thereA\n");
    }
}

} // namespace
