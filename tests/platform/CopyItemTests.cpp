#include "platform/files/CopyItem.h"
#include "platform/files/Files.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::TemporaryFolder;
using testing::HasSubstr;

TEST(CopyItem, KeepsContentsHolesModesTimesAndLinks) {
    const TemporaryFolder folder;
    folder.write("a/Contents/large", std::string(3'000'001, 'x'));
    folder.write("a/Contents/tool", "#!/bin/sh\n");
    folder.write("a/sparse", "start");
    folder.makeFolder("a/closed/inner");
    fs::create_symlink("nowhere", folder.path("a/dangling"));
    fs::create_symlink("Contents", folder.path("a/folder"));
    support::outputOf("cd " + folder.path("a") + R"( && truncate -s 10M sparse && chmod 751 Contents/tool &&
        printf middle | dd of=sparse bs=1M seek=4 conv=notrunc status=none && chmod 555 closed &&
        find . -exec touch -hd @1400000000.123456789 {} +)");
    // If the machine has another file system: the kernel does not copy between file systems.
    const TemporaryFolder memory(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path());
    const std::string source = folder.path("a");
    const auto list = [](std::string path) {
        return support::outputOf("cd " + path.append(" && find -printf '%P %M %T@ %l\n' | sort"));
    };
    for (const std::string& copy : {folder.path("b"), memory.path("b")}) {
        EXPECT_TRUE(copyItem({.source = source, .destination = copy}));
        EXPECT_EQ(list(copy), list(source));
        std::string both = source + " ";
        EXPECT_EQ(support::outputOf("diff -r --no-dereference " + both.append(copy)), "");
        EXPECT_LT(std::stoi(support::outputOf("cd " + copy + " && du -k sparse")), 200);
    }
}

TEST(CopyItem, ReportsWhatItCannotCopy) {
    const TemporaryFolder folder;
    folder.write("a/b/file", "content");
    folder.write("there", "old");
    folder.makeFolder("folder");
    fs::create_symlink("nowhere", folder.path("link"));
    const struct {
        const char *from, *to, *error;
    } cases[] = {{"none", "x", "/none: No such file"},
                 {"a", "missing/x", "/missing/x: No such file"},
                 {"a", "there", "/there: File exists"},
                 {"a", "link", "/link: File exists"},
                 {"a", "a/b/copy", "into itself"}};
    for (const auto& [from, to, error] : cases) {
        const Outcome copied = copyItem({.source = folder.path(from), .destination = folder.path(to)});
        EXPECT_THAT(copied ? "" : copied.error().description(), HasSubstr(error));
    }
    EXPECT_EQ(readFile(folder.path("there"))->bytes(), "old");
}

} // namespace
} // namespace platform
