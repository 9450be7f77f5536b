#include "Categories/NSTask+Convenience.h"
#include "platform/Files.h"
#include "support/TemporaryFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>

namespace {

using support::TemporaryFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
namespace fs = std::filesystem;

struct Outcome {
    int status = -1;
    std::string stdoutText;
    std::string stderrText;
};

Outcome run(const std::string& program, const NSTask::Arguments& arguments,
            const std::optional<std::string>& workingDirectory = std::nullopt) {
    Outcome outcome;
    NSTask::launchWithPath(program, workingDirectory, arguments,
                           [&](const platform::Data& err, const platform::Data& out, std::int32_t status) {
                               outcome = {status, std::string(out.bytes()), std::string(err.bytes())};
                           });
    return outcome;
}

Outcome ditto(const std::string& source, const std::string& archive,
              const std::optional<std::string>& workingDirectory = std::nullopt) {
    return run(DITTO_PATH, {"-c", "-k", "--keepParent", source, archive}, workingDirectory);
}

/// Through a shell, for what has to be set up around the archiver: "$D SOURCE ARCHIVE".
Outcome shell(const std::string& script, const std::string& workingDirectory) {
    return run("/bin/sh", {"-c", "D='" DITTO_PATH " -c -k --keepParent'; " + script}, workingDirectory);
}

std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string noise(std::size_t size) {
    std::mt19937 random(149);
    std::string bytes(size, '\0');
    std::ranges::generate(bytes, [&] { return static_cast<char>(random()); });
    return bytes;
}

std::string text(std::size_t size) {
    std::mt19937 random(7);
    std::string result;
    while (result.size() < size)
        result += "_ZN7Orvane" + std::to_string(random() % 30000) + "Ev\n";
    result.resize(size);
    return result;
}

/// Rising 32-bit numbers, as the look-up tables of a DWARF file hold them.
std::string table(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i / 4 * 16) >> (i % 4 * 8));
    return bytes;
}

/// Every path below `folder` with kind and permissions, time, and content or target.
std::map<std::string, std::string> treeIn(const fs::path& folder) {
    std::map<std::string, std::string> tree;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        struct stat status;
        EXPECT_EQ(lstat(entry.path().c_str(), &status), 0);
        std::string content;
        if (S_ISLNK(status.st_mode))
            content = fs::read_symlink(entry.path());
        else if (S_ISREG(status.st_mode))
            content = bytesOf(entry.path());
        tree[fs::relative(entry.path().parent_path(), folder) / entry.path().filename()] =
            std::to_string(status.st_mode) + " " + std::to_string(status.st_mtime) + " " + content;
    }
    return tree;
}

void setTime(const std::string& path, std::int64_t seconds) {
    const timespec times[2] = {{seconds, 0}, {seconds, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

/// A bundle with everything that one may hold, on both sides of each size that the archiver treats apart.
std::string makeBundle(const TemporaryFolder& folder) {
    constexpr std::size_t piece = 1 << 20;
    const std::map<std::string, std::string> files = {
        {"Info.plist", "<plist/>\n"},
        {"DWARF/My App", text(3 * piece + 17)},
        {"DWARF/exactly two pieces", text(2 * piece)},
        {"DWARF/incompressible", noise(piece + 1)},
        {"DWARF/zeros", std::string(5 * piece, '\0')},
        {"DWARF/table", table(2 * piece + 99)},
        {"empty", ""},
        {"one byte", "x"},
        {"noise", noise(5000)},
        {"a!", "before a/"},
        {"a/b", "inside"},
        {"a.txt", "between"},
        {"d\xC3\xA9j\xC3\xA0/\xF0\x9F\x8D\x8E", "UTF-8"},
        {std::string(255, 'n'), "long name"},
    };
    for (const auto& [name, content] : files)
        folder.write("source/My App.app.dSYM/Contents/" + name, content);
    const std::string contents = folder.path("source/My App.app.dSYM/Contents/");
    fs::create_symlink("../../../outside", contents + "link");
    fs::create_symlink("DWARF", contents + "link to folder");
    fs::create_symlink(std::string(1000, 't'), contents + "long link");
    folder.makeFolder("source/My App.app.dSYM/Contents/empty folder");
    chmod((contents + "empty").c_str(), 0400);
    chmod((contents + "one byte").c_str(), 04751);
    chmod((contents + "empty folder").c_str(), 01700);
    setTime(contents + "link", 1234567890);
    setTime(contents + "noise", 315532801); // an odd second of 1980
    setTime(contents + "a!", 0);
    setTime(contents + "empty folder", 2147483647);
    setTime(contents + "DWARF", 1000000001);
    return folder.path("source/My App.app.dSYM");
}

TEST(Ditto, OtherToolsUnpackTheVeryTreeThatWasPacked) {
    const TemporaryFolder folder;
    const std::string bundle = makeBundle(folder);
    const std::string archive = folder.path("archive.zip");
    const Outcome outcome = ditto(bundle, archive);
    ASSERT_EQ(outcome.status, 0) << outcome.stderrText;
    EXPECT_EQ(outcome.stdoutText + outcome.stderrText, "");
    EXPECT_EQ(run("/usr/bin/unzip", {"-tqq", archive}).status, 0);
    EXPECT_EQ(run("/usr/bin/env", {"python3", "-m", "zipfile", "-t", archive}).status, 0);

    const auto source = treeIn(folder.path("source"));
    const std::pair<const char*, NSTask::Arguments> unpackers[] = {
        {"/usr/bin/bsdtar", {"-xpf", archive, "-C", folder.makeFolder("bsdtar")}},
        {"/usr/bin/unzip", {"-qqK", archive, "-d", folder.makeFolder("unzip")}},
    };
    for (const auto& [program, arguments] : unpackers) {
        const Outcome unpacked = run(program, arguments);
        EXPECT_EQ(unpacked.status, 0) << unpacked.stderrText;
        auto tree = treeIn(folder.path(fs::path(program).filename().string()));
        for (const auto& [name, description] : source) {
            // unzip leaves a link's own time alone.
            if (program != unpackers[0].first && fs::is_symlink(folder.path("source/" + name)))
                continue;
            EXPECT_TRUE(tree[name] == description)
                << program << ": " << name << ": " << tree[name].substr(0, 40) << " for "
                << description.substr(0, 40);
        }
        EXPECT_EQ(tree.size(), source.size());
    }
}

TEST(Ditto, EntriesAreSortedByTheirBytesBelowOneFolder) {
    const TemporaryFolder folder;
    makeBundle(folder);
    for (const char* source : {"My App.app.dSYM", "./My App.app.dSYM///", "My App.app.dSYM/Contents/.."}) {
        ASSERT_EQ(ditto(source, "../archive.zip", folder.path("source")).status, 0);
        const Outcome listed =
            run("/usr/bin/env", {"python3", "-c",
                                 "import sys, zipfile; names = [n.encode() for n in "
                                 "zipfile.ZipFile(sys.argv[1]).namelist()]; print(names == sorted(names), "
                                 "names[0].decode(), {n.split(b'/')[0].decode() for n in names})",
                                 folder.path("archive.zip")});
        EXPECT_EQ(listed.stdoutText, "True My App.app.dSYM/ {'My App.app.dSYM'}\n") << source;
    }
}

TEST(Ditto, TheSameBundleGivesTheSameBytesWhateverTheMachine) {
    const TemporaryFolder folder;
    makeBundle(folder);
    const Outcome outcome = shell("B='source/My App.app.dSYM'; $D \"$B\" 1 && TZ=Asia/Tokyo $D \"$B\" 2 && "
                                  "taskset 1 $D \"$B/\" 3 && cmp 1 2 && cmp 1 3",
                                  folder.path());
    EXPECT_EQ(outcome.status, 0) << outcome.stdoutText << outcome.stderrText;
}

TEST(Ditto, TablesShrinkAsNamesDo) {
    const TemporaryFolder folder;
    folder.write("S/table", table(3 << 20));
    ASSERT_EQ(ditto(folder.path("S"), folder.path("archive.zip")).status, 0);
    EXPECT_LT(fs::file_size(folder.path("archive.zip")), (3 << 20) / 3);
}

TEST(Ditto, PacksOneFileOrWhatALinkNames) {
    const TemporaryFolder folder;
    folder.write("file", "content");
    folder.write("real/inside", "content");
    fs::create_symlink("real", folder.path("link"));
    for (const auto& [source, names] : {std::pair{"file", "file\n"}, {"link", "link/\nlink/inside\n"}}) {
        EXPECT_EQ(ditto(folder.path(source), folder.path("archive.zip")).status, 0);
        EXPECT_EQ(run("/usr/bin/bsdtar", {"-tf", folder.path("archive.zip")}).stdoutText, names);
    }
}

TEST(Ditto, NamesThatAreNotUTF8StayApart) {
    const TemporaryFolder folder;
    for (const char* name : {"S/\xE9", "S/\xEA", "S/\xC3\xA9", "S/\xEF\xBF\xBD"})
        folder.write(name, name);
    ASSERT_EQ(ditto(folder.path("S"), folder.path("archive.zip")).status, 0);
    const Outcome unpacked =
        run("/usr/bin/unzip", {"-qq", folder.path("archive.zip"), "-d", folder.path("out")});
    EXPECT_EQ(unpacked.status, 0) << unpacked.stderrText;
    EXPECT_EQ(treeIn(folder.path("S")), treeIn(folder.path("out/S")));
}

TEST(Ditto, MoreEntriesThanTheFormatCountsIn16Bits) {
    const TemporaryFolder folder;
    fs::create_directory(folder.path("S"));
    for (int i = 0; i < 66000; ++i)
        close(open(folder.path("S/" + std::to_string(i)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    ASSERT_EQ(ditto(folder.path("S"), folder.path("archive.zip")).status, 0);
    const Outcome counted = run("/usr/bin/env", {"python3", "-c",
                                                 "import sys, zipfile; "
                                                 "print(len(zipfile.ZipFile(sys.argv[1]).namelist()))",
                                                 folder.path("archive.zip")});
    EXPECT_EQ(counted.stdoutText, "66001\n");
    EXPECT_EQ(run("/usr/bin/unzip", {"-tqq", folder.path("archive.zip")}).status, 0);
}

TEST(Ditto, AnyOtherUseGetsTheUsageLine) {
    const TemporaryFolder folder;
    folder.write("S/file", "content");
    const std::string source = folder.path("S");
    const std::string archive = folder.path("archive.zip");
    const NSTask::Arguments misuses[] = {
        {},
        {"-c", "-k", "--keepParent", source},
        {"-c", "-k", "--keepParent", source, archive, "more"},
        {"-k", "-c", "--keepParent", source, archive},
        {"-x", "-k", "--keepParent", source, archive},
        {"-c", "-k", "--keepParent", "", archive},
        {"-c", "-k", "--keepParent", source, ""},
    };
    for (const auto& arguments : misuses) {
        const Outcome outcome = run(DITTO_PATH, arguments);
        EXPECT_EQ(outcome.status, 64);
        EXPECT_EQ(outcome.stderrText, "usage: ditto -c -k --keepParent SOURCE ARCHIVE\n");
        EXPECT_FALSE(fs::exists(archive));
    }
}

TEST(Ditto, FailuresSayWhyAndLeaveWhatWasThere) {
    const struct {
        const char* script;
        const char* message;
    } cases[] = {
        {"$D missing A", "cannot open missing: No such file or directory\n"},
        {"$D S missing/A", "cannot create missing/A: No such file or directory\n"},
        {"$D S S/A", "cannot write S/A: it would lie inside S, which it is to hold; choose another folder\n"},
        {"$D S S/sub/../A", "it would lie inside S"},
        {"$D S S/sub/deep", "it would lie inside S"},
        {"$D file file", "cannot write file"},
        {"$D S folder", "cannot write folder: something that is no file is there\n"},
        {"$D S /dev/null", "cannot write /dev/null: something that is no file is there\n"},
        {"$D / A", "cannot archive \"/\": it has no name that the archive could bear\n"},
        {"$D /dev/null A", "cannot archive /dev/null: it is neither a folder nor a file\n"},
        {"mkfifo S/z; $D S A", "S/z is neither a file nor a folder nor a link; remove it from the bundle\n"},
        {"ulimit -f 64; $D S A", "cannot write A: File too large\n"},
        {"ulimit -n 5; $D S A", "Too many open files\n"},
    };
    for (const auto& failing : cases) {
        const TemporaryFolder folder;
        folder.write("S/noise", noise(3 << 20));
        folder.write("S/sub/deep", "deep");
        folder.write("A", "what was there");
        folder.write("file", "what was there");
        folder.makeFolder("folder");
        const auto before = treeIn(folder.path());
        const Outcome outcome = shell(failing.script, folder.path());
        EXPECT_EQ(outcome.status, 1) << failing.script;
        EXPECT_THAT(outcome.stderrText, StartsWith("ditto: "));
        EXPECT_THAT(outcome.stderrText, HasSubstr(failing.message));
        fs::remove(folder.path("S/z"));
        EXPECT_EQ(bytesOf(folder.path("A")), "what was there") << failing.script;
        EXPECT_EQ(treeIn(folder.path()).size(), before.size()) << failing.script;
    }
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

/// An archiver at work on a file so large that it cannot end by itself before the test has done its part.
class DittoAtWork : public testing::Test {
protected:
    static constexpr off_t hugeSize = off_t{1} << 40;

    void SetUp() override {
        _folder.write("S/sub/huge", "");
        ASSERT_EQ(truncate(huge().c_str(), hugeSize), 0);
        _folder.write("archives/A", "what was there");
        std::vector<std::string> words = {
            DITTO_PATH, "-c", "-k", "--keepParent", _folder.path("S"), _folder.path("archives/A")};
        std::vector<char*> arguments;
        std::ranges::transform(words, std::back_inserter(arguments), [](auto& word) { return word.data(); });
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, _folder.path("messages").c_str(),
                                         O_CREAT | O_WRONLY, 0600);
        ASSERT_EQ(posix_spawn(&_process, DITTO_PATH, &actions, nullptr, arguments.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        waitUntilItWrites();
    }

    void TearDown() override {
        EXPECT_EQ(bytesOf(_folder.path("archives/A")), "what was there");
        EXPECT_THAT(*platform::namesInDirectory(_folder.path("archives")), ElementsAre("A"));
    }

    std::string huge() const { return _folder.path("S/sub/huge"); }
    std::string messages() const { return bytesOf(_folder.path("messages")); }
    pid_t process() const { return _process; }

    int waitStatus() const {
        int status = 0;
        waitpid(_process, &status, 0);
        return status;
    }

private:
    void waitUntilItWrites() const {
        while (waitpid(_process, nullptr, WNOHANG) == 0)
            for (const auto& entry : fs::directory_iterator(_folder.path("archives")))
                if (entry.path().filename() != "A" && fs::file_size(entry) > 0)
                    return;
        FAIL() << "the archiver ended early: " << messages();
    }

    TemporaryFolder _folder;
    pid_t _process = -1;
};

TEST_F(DittoAtWork, LeavesNothingWhenASignalEndsIt) {
    kill(process(), SIGTERM);
    const int status = waitStatus();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
}

TEST_F(DittoAtWork, FailsWhenTheFileBecomesShorter) {
    ASSERT_EQ(truncate(huge().c_str(), 1), 0);
    const int status = waitStatus();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
    EXPECT_EQ(messages(), "ditto: " + huge() + " became shorter while it was read; archive it again\n");
}

} // namespace
