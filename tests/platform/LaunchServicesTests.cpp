#include "support/ChildProcess.h"
#include "support/ReportPipe.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <filesystem>

namespace platform {
namespace {

using testing::EndsWith;
using testing::StartsWith;

constexpr const char* url = "tarnwhistle://xcode?a=%20b";

/// A desktop with one registered handler, a shell script that reports how it was started.
class Desktop {
public:
    Desktop() : reports(_folder.path("reports")) {
        writeProgram("Orvane.app/bin/handler", "#!/bin/sh\n");
        sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
        _folder.path("bus").copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(_bus.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(_bus.get(), 1), 0);
    }

    std::string path(std::string_view name) const { return _folder.path(name); }
    const std::string& path() const { return _folder.path(); }

    void writeProgram(std::string_view name, std::string_view firstLine, mode_t mode = 0755) const {
        const std::string report = R"sh(
streams=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2 | tr '\n' ' ')
{
printf '%s\n' "$@"
echo "session $(( $(cut -d' ' -f6 /proc/$$/stat) - $$ ))"
echo "streams $streams"
[ ! -e /proc/$$/fd/50 ] || echo leaked
echo
} > )sh";
        const std::string text = std::string(firstLine) + report + "'" + path("reports") + "'\n";
        EXPECT_EQ(chmod(_folder.write(name, text).c_str(), mode), 0);
    }

    void registerHandler(const std::string& exec) const {
        _folder.write("data/applications/handler.desktop",
                      "[Desktop Entry]\nType=Application\nName=Or vane\nExec=" + exec +
                          "\nDBusActivatable=true\nPath=/\n");
        _folder.write("data/applications/mimeapps.list",
                      "[Default Applications]\nx-scheme-handler/tarnwhistle=handler.desktop\n");
    }

    /// What is printed when `urls` are opened, on a machine whose session bus never answers.
    std::string open(const std::vector<std::string>& urls) const {
        support::Launch launch = {.arguments = {ORVANE_OPEN_URL},
                                  .environment = {"HOME=" + path("home"), "XDG_DATA_HOME=" + path("data"),
                                                  "XDG_DATA_DIRS=" + path("none"), "DISPLAY=:99",
                                                  "DBUS_SESSION_BUS_ADDRESS=unix:path=" + path("bus"),
                                                  "PATH=" + path("on path") + ":/usr/bin:/bin"},
                                  .workingDirectory = {},
                                  .standardErrorPath = {}};
        launch.arguments.insert(launch.arguments.end(), urls.begin(), urls.end());
        return run(launch).standardOutput;
    }

private:
    support::TemporaryFolder _folder;
    FileDescriptor _bus{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};

public:
    support::ReportPipe reports;
};

TEST(OpenURLs, GivesTheHandlerTheURLsAsItsExecLineSays) {
    const std::pair<const char*, std::string> cases[] = {
        {"%u", std::string(url) + "\n"},
        {"--first %U last", std::string("--first\n") + url + "\ntarnwhistle:2\nlast\n"},
        {"", std::string(url) + "\ntarnwhistle:2\n"},
        {R"("two words" --url=%u %i %c 100%%)",
         std::string("two words\n--url=") + url + "\nOr vane\n100%\n"}};
    Desktop desktop;
    for (const auto& [arguments, expected] : cases) {
        desktop.registerHandler(desktop.path("Orvane.app/bin/handler ") + arguments);
        EXPECT_THAT(desktop.open({url, "tarnwhistle:2"}), EndsWith("\n0\n"));
        EXPECT_EQ(desktop.reports.next(), expected + "session 0\nstreams /dev/null /dev/null /dev/null \n");
    }
}

TEST(OpenURLs, ReportsWhatCannotBeOpened) {
    Desktop desktop;
    EXPECT_EQ(desktop.open({}), "none\n-50\n");
    EXPECT_EQ(desktop.open({url}), "none\n-10814\n");
    desktop.registerHandler("/bin/true %u");
    EXPECT_EQ(desktop.open({"other:x"}), "none\n-10814\n");
    desktop.writeProgram("plain", "#!/bin/sh\n", 0644);
    desktop.writeProgram("badly started", "#!" + desktop.path("gone") + "\n");
    for (const std::string& exec :
         {desktop.path("gone"), desktop.path("plain"), std::string(), std::string("'")}) {
        desktop.registerHandler(exec);
        EXPECT_EQ(desktop.open({url}), "none\n-10814\n") << exec;
    }
    desktop.registerHandler(std::string("'").append(desktop.path("badly started")) + "'");
    EXPECT_EQ(desktop.open({url}), desktop.path() + "/\n-10810\n");
}

TEST(ApplicationForURL, IsTheNearestAppFolderOrTheProgramsOwn) {
    const Desktop desktop;
    desktop.writeProgram("Outer.app/Inner.app/Contents/Linux/x", "#!/bin/true\n");
    desktop.writeProgram("on path/y", "#!/bin/true\n");
    std::filesystem::create_symlink(desktop.path("Orvane.app/bin/handler"), desktop.path("on path/linked"));
    const std::pair<std::string, const char*> cases[] = {
        {desktop.path("Outer.app/Inner.app/Contents/Linux/x"), "Outer.app/Inner.app/\n"},
        {"y %u", "on path/\n"},
        {"linked", "Orvane.app/\n"}};
    for (const auto& [exec, folder] : cases) {
        desktop.registerHandler(exec);
        EXPECT_THAT(desktop.open({url}), StartsWith(desktop.path(folder))) << exec;
    }
}

} // namespace
} // namespace platform
