#include "support/ChildProcess.h"
#include "support/ReportPipe.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

namespace platform {
namespace {

constexpr const char* url = "tarnwhistle://xcode?a=%20b";

class LaunchServices : public testing::Test {
protected:
    std::string writeProgram(std::string_view name, const std::string& text = "#!/bin/true\n") const {
        std::string path = folder.write(name, text);
        EXPECT_EQ(chmod(path.c_str(), 0755), 0);
        return path;
    }
    void registerHandler(const std::string& exec) const {
        folder.write("data/applications/handler.desktop",
                     "[Desktop Entry]\nType=Application\nName=Or vane\nExec=" + exec +
                         "\nDBusActivatable=true\nPath=/\n");
        folder.write("data/applications/mimeapps.list",
                     "[Default Applications]\nx-scheme-handler/tarnwhistle=handler.desktop\n");
    }
    /// The application for the first of `urls` and the status of opening all of them.
    std::string open(const std::vector<std::string>& urls) const {
        support::Launch launch = {.arguments = {ORVANE_OPEN_URL},
                                  .environment = {"HOME=" + folder.path("home"),
                                                  "XDG_DATA_HOME=" + folder.path("data"),
                                                  "XDG_DATA_DIRS=" + folder.path("none"), "DISPLAY=:99",
                                                  "PATH=" + folder.path("on path") + ":/usr/bin:/bin"}};
        launch.arguments.insert(launch.arguments.end(), urls.begin(), urls.end());
        return run(launch).standardOutput;
    }

    support::TemporaryFolder folder;
};

TEST_F(LaunchServices, GiveTheHandlerTheURLsAsItsExecLineSays) {
    support::ReportPipe reports(folder.path("reports"));
    const std::string handler = writeProgram("Orvane.app/bin/handler", R"sh(#!/bin/sh
streams=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2 | tr '\n' ' ')
{ printf '%s|' "$@"
  echo "session $(( $(cut -d' ' -f6 /proc/$$/stat) - $$ )) streams $streams"
  [ ! -e /proc/$$/fd/50 ] || echo leaked
  echo
} > ')sh" + folder.path("reports") + "'\n");
    const std::pair<const char*, std::string> cases[] = {
        {" %u", std::string(url) + "|"},
        {" --first %U last", std::string("--first|") + url + "|tarnwhistle:2|last|"},
        {"", std::string(url) + "|tarnwhistle:2|"},
        {R"( "two words" --url=%u %i %c 100%%)", std::string("two words|--url=") + url + "|Or vane|100%|"}};
    for (const auto& [arguments, expected] : cases) {
        registerHandler(handler + arguments);
        EXPECT_EQ(open({url, "tarnwhistle:2"}), folder.path("Orvane.app/\n0\n"));
        EXPECT_EQ(reports.next(), expected + "session 0 streams /dev/null /dev/null /dev/null \n");
    }
}

TEST_F(LaunchServices, FindTheNearestAppFolderOrTheProgramsOwnAndSayWhatCannotBeOpened) {
    EXPECT_EQ(open({}), "none\n-50\n");
    EXPECT_EQ(open({url}), "none\n-10814\n");
    const std::string program = writeProgram("Outer.app/Inner.app/Contents/Linux/x");
    writeProgram("on path/y");
    std::filesystem::create_symlink(program, folder.path("on path/linked"));
    const std::string badlyStarted = writeProgram("badly started", "#!" + folder.path("gone") + "\n");
    const std::pair<std::string, std::string> cases[] = {
        {program, folder.path("Outer.app/Inner.app/") + "\n0\n"},
        {"y %u", folder.path("on path/") + "\n0\n"},
        {"linked", folder.path("Outer.app/Inner.app/") + "\n0\n"},
        {"'" + badlyStarted + "'", folder.path() + "/\n-10810\n"},
        {folder.write("plain", "#!/bin/sh\n"), "none\n-10814\n"},
        {"'", "none\n-10814\n"}};
    for (const auto& [exec, expected] : cases) {
        registerHandler(exec);
        EXPECT_EQ(open({url}), expected) << exec;
    }
    EXPECT_EQ(open({"other:x"}), "none\n-10814\n");
}

} // namespace
} // namespace platform
