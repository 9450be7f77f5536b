#include "platform/CopyItem.h"
#include "platform/Files.h"
#include "support/TemporaryFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::TemporaryFolder;
using testing::HasSubstr;

struct stat statusOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

std::string copyError(const TemporaryFolder& folder, std::string_view from, std::string_view to) {
    const Outcome copied = copyItem({.source = folder.path(from), .destination = folder.path(to)});
    return copied ? "" : copied.error().description();
}

TEST(CopyItem, KeepsContentsHolesModesTimesAndLinks) {
    const TemporaryFolder folder;
    folder.write("outside", "not to be touched");
    folder.write("a.dSYM/Contents/large", std::string(3'000'001, 'x'));
    folder.write("a.dSYM/Contents/tool", "#!/bin/sh\n");
    folder.write("a.dSYM/sparse", "start");
    folder.makeFolder("a.dSYM/closed/inner");
    fs::create_symlink("../outside", folder.path("a.dSYM/out"));
    fs::create_symlink("nowhere", folder.path("a.dSYM/dangling"));
    fs::create_symlink("Contents", folder.path("a.dSYM/folder"));
    fs::resize_file(folder.path("a.dSYM/sparse"), 10 << 20);
    std::fstream(folder.path("a.dSYM/sparse"), std::ios::in | std::ios::out).seekp(4 << 20) << "middle";
    const std::pair<const char*, mode_t> modes[] = {{"a.dSYM/Contents/tool", 0751}, {"a.dSYM/closed", 0555}};
    for (const auto& [name, mode] : modes)
        EXPECT_EQ(chmod(folder.path(name).c_str(), mode), 0);
    const char* items[] = {
        "/Contents/large", "/Contents/tool", "/sparse", "/closed/inner", "/closed", "/out", "/dangling",
        "/folder",         "/Contents",      ""};
    const timespec times[] = {{1'400'000'000, 123456789}, {1'400'000'000, 123456789}};
    for (const char* item : items)
        EXPECT_EQ(utimensat(AT_FDCWD, (folder.path("a.dSYM") + item).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);

    EXPECT_EQ(copyError(folder, "a.dSYM", "b.dSYM"), "");
    for (const char* item : items) {
        const std::string from = folder.path("a.dSYM") + item, to = folder.path("b.dSYM") + item;
        const struct stat original = statusOf(from), copy = statusOf(to);
        EXPECT_EQ(copy.st_mode, original.st_mode) << item;
        EXPECT_EQ(copy.st_mtim.tv_sec, original.st_mtim.tv_sec) << item;
        EXPECT_EQ(copy.st_mtim.tv_nsec, original.st_mtim.tv_nsec) << item;
        EXPECT_LE(copy.st_blocks, original.st_blocks + 64) << item;
        if (S_ISREG(copy.st_mode)) {
            EXPECT_EQ(readFile(to)->bytes(), readFile(from)->bytes()) << item;
        } else if (S_ISLNK(copy.st_mode)) {
            EXPECT_EQ(fs::read_symlink(to), fs::read_symlink(from)) << item;
        }
    }
}

TEST(CopyItem, SaysWhatItCannotCopy) {
    const TemporaryFolder folder;
    folder.write("a/b/file", "content");
    folder.write("there", "old");
    folder.makeFolder("folder");
    fs::create_symlink("nowhere", folder.path("link"));
    EXPECT_EQ(mkfifo(folder.path("pipe").c_str(), 0666), 0);
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {"none", "x", folder.path("none") + ": No such file"},
        {"a", "missing/x", folder.path("missing/x") + ": No such file"},
        {"a", "there", folder.path("there") + ": File exists"},
        {"a", "folder", folder.path("folder") + ": File exists"},
        {"a", "link", folder.path("link") + ": File exists"},
        {"a/b/file", "there", folder.path("there") + ": File exists"},
        {"a/b/file", "link", folder.path("link") + ": File exists"},
        {"a", "a/b/copy", "into itself"},
        {"pipe", "x", folder.path("pipe") + ": Operation not supported"}};
    for (const auto& [from, to, error] : cases)
        EXPECT_THAT(copyError(folder, from, to), HasSubstr(error));
    EXPECT_EQ(readFile(folder.path("there"))->bytes(), "old");

    std::string deep = "deep";
    for (int i = 0; i < 40; ++i)
        deep += "/f";
    folder.makeFolder(deep);
    rlimit limit;
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit few = {40, limit.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_THAT(copyError(folder, "deep", "x"), HasSubstr("/f: Too many open files"));
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);

    const fs::path start = fs::current_path(), name(std::string(250, 'n'));
    fs::current_path(folder.path("deep"));
    for (int i = 0; i < 17; ++i) {
        fs::create_directory(name);
        fs::current_path(name);
    }
    fs::current_path(start);
    EXPECT_THAT(copyError(folder, "deep", "y"), HasSubstr("File name too long"));
}

} // namespace
} // namespace platform
