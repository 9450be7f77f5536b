#include "platform/CopyItem.h"
#include "platform/Files.h"
#include "support/TemporaryFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace platform {
namespace {

using support::TemporaryFolder;
using testing::HasSubstr;

struct stat statusOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

void setModificationTime(const std::string& path, time_t seconds) {
    const timespec times[] = {{seconds, 123456789}, {seconds, 123456789}};
    EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

std::string copyError(const TemporaryFolder& folder, std::string_view from, std::string_view to) {
    const Outcome copied = copyItem({.source = folder.path(from), .destination = folder.path(to)});
    return copied ? "" : copied.error().description();
}

TEST(CopyItem, KeepsContentsModesTimesAndLinks) {
    const TemporaryFolder folder;
    const std::string content(3'000'001, 'x');
    folder.write("outside", "not to be touched");
    folder.write("a.dSYM/Contents/large", content);
    folder.write("a.dSYM/Contents/tool", "#!/bin/sh\n");
    folder.write("a.dSYM/empty", "");
    folder.makeFolder("a.dSYM/closed/inner");
    const std::pair<const char*, const char*> links[] = {
        {"../outside", "a.dSYM/out"}, {"nowhere", "a.dSYM/dangling"}, {"Contents", "a.dSYM/folder"}};
    for (const auto& [target, link] : links)
        std::filesystem::create_symlink(target, folder.path(link));
    EXPECT_EQ(chmod(folder.path("a.dSYM/Contents/tool").c_str(), 0751), 0);
    const char* items[] = {
        "/Contents/large", "/Contents/tool", "/empty", "/closed/inner", "/closed", "/out", "/dangling",
        "/folder",         "/Contents",      ""};
    for (const char* item : items)
        setModificationTime(folder.path(std::string("a.dSYM") + item), 1'400'000'000);
    EXPECT_EQ(chmod(folder.path("a.dSYM/closed").c_str(), 0555), 0);

    EXPECT_EQ(copyError(folder, "a.dSYM", "b.dSYM"), "");
    for (const char* item : items) {
        const struct stat original = statusOf(folder.path(std::string("a.dSYM") + item));
        const struct stat copy = statusOf(folder.path(std::string("b.dSYM") + item));
        EXPECT_EQ(copy.st_mode, original.st_mode) << item;
        EXPECT_EQ(copy.st_mtim.tv_sec, original.st_mtim.tv_sec) << item;
        EXPECT_EQ(copy.st_mtim.tv_nsec, original.st_mtim.tv_nsec) << item;
    }
    EXPECT_EQ(readFile(folder.path("b.dSYM/Contents/large"))->bytes(), content);
    for (const auto& [target, link] : links) {
        std::string copy = folder.path(link);
        copy[folder.path("").size()] = 'b';
        EXPECT_EQ(std::filesystem::read_symlink(copy), target);
    }
}

TEST(CopyItem, KeepsHolesAndWhatLiesBetweenThem) {
    const TemporaryFolder folder;
    const std::string path = folder.write("sparse", "start");
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(4 << 20);
    file << "middle";
    file.close();
    std::filesystem::resize_file(path, 10 << 20);
    EXPECT_EQ(copyError(folder, "sparse", "copy"), "");
    EXPECT_EQ(readFile(folder.path("copy"))->bytes(), readFile(path)->bytes());
    EXPECT_LE(statusOf(folder.path("copy")).st_blocks, statusOf(path).st_blocks + 64);
}

TEST(CopyItem, SaysWhatItCannotCopy) {
    const TemporaryFolder folder;
    folder.write("a/b/file", "content");
    folder.write("there", "old");
    folder.makeFolder("folder");
    std::filesystem::create_symlink("nowhere", folder.path("link"));
    EXPECT_THAT(copyError(folder, "none", "x"), HasSubstr(folder.path("none") + ": No such file"));
    EXPECT_THAT(copyError(folder, "a", "missing/x"), HasSubstr(folder.path("missing/x") + ": No such file"));
    for (const char* taken : {"there", "folder", "link"}) {
        EXPECT_THAT(copyError(folder, "a", taken), HasSubstr(folder.path(taken) + ": File exists"));
        EXPECT_THAT(copyError(folder, "a/b/file", taken), HasSubstr(folder.path(taken) + ": File exists"));
    }
    EXPECT_EQ(readFile(folder.path("there"))->bytes(), "old");
    EXPECT_THAT(copyError(folder, "a", "a/b/copy"), HasSubstr("into itself"));
    EXPECT_EQ(mkfifo(folder.path("a/b/pipe").c_str(), 0666), 0);
    EXPECT_THAT(copyError(folder, "a", "c"),
                HasSubstr(folder.path("a/b/pipe") + ": Operation not supported"));
}

} // namespace
} // namespace platform
