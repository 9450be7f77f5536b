#include "platform/launchservices/LaunchServices.h"
#include "platform/launchservices/linux/DesktopEntry.h"
#include "platform/launchservices/linux/KeyFile.h"
#include "support/EnvironmentVariable.h"
#include "support/ReportPipe.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <tuple>

namespace platform {
namespace {

using std::filesystem::create_symlink;

const URL url = *URL::parse("tarnwhistle://xcode?a=%20b"), second = *URL::parse("tarnwhistle:2");

std::string entry(const std::string& lines) {
    return "[Desktop Entry]\nType=Application\nName=name\nName[de]=Or vane\nIcon=ic on\n" + lines;
}

const std::string type = "x-scheme-handler/tarnwhistle=", defaults = "[Default Applications]\n" + type,
                  added = "[Added Associations]\n" + type, removed = "[Removed Associations]\n" + type,
                  cached = "[MIME Cache]\n" + type;
const std::string data = "data/applications/", system = "system/applications/", list = "mimeapps.list",
                  cache = system + "mimeinfo.cache";

/// A user's desktop with the applications a, b and c in the system's data folder. It is the working folder.
class Desktop : public support::TemporaryFolder {
public:
    Desktop() {
        std::filesystem::current_path(path());
        makeFolder("on path");
        for (const std::string name : {"a", "b", "c"}) {
            create_symlink(writeProgram(name + ".app/bin"), path("on path/" + name));
            write(system + name + ".desktop", entry("Exec=" + name));
        }
    }
    ~Desktop() { std::filesystem::current_path("/"); }

    std::string writeProgram(std::string_view name, const std::string& text = "#!/bin/true\n") const {
        std::string program = write(name, text);
        EXPECT_EQ(chmod(program.c_str(), 0755), 0);
        return program;
    }
    void registerHandler(const std::string& exec) const {
        write(data + "handler.desktop", entry("DBusActivatable=true\nTerminal=true\nPath=/\nExec=" + exec));
        write(data + list, defaults + "handler.desktop");
    }

private:
    const support::EnvironmentVariable _environment[9] = {
        {"LC_ALL", ""},
        {"LC_MESSAGES", "de_AT.UTF-8"},
        {"HOME", path("home")},
        {"XDG_CONFIG_HOME", "relative"},
        {"XDG_CONFIG_DIRS", path("xdg") + ":" + path("xdg2")},
        {"XDG_DATA_HOME", path("data")},
        {"XDG_DATA_DIRS", "relative:" + path("none") + ":" + path("system")},
        {"XDG_CURRENT_DESKTOP", "Odd:GNOME"},
        {"PATH", path("on path") + ":/usr/bin:/bin:."}};
};

/// The application for the first URL, and the status of opening all of them.
std::string opened(const std::vector<URL>& urls) {
    const auto application = urls.empty() ? std::nullopt : applicationForURL(urls.front());
    const std::int32_t status = openURLs(urls);
    return (application ? application->path() : "none") + " " + std::to_string(status);
}

TEST(LaunchServices, StartAProgramForEachURLInItsOwnSession) {
    dup2(STDOUT_FILENO, 50);
    const Desktop desktop;
    support::ReportPipe reports(desktop.path("reports"));
    // The handler may outlive the opening.
    desktop.writeProgram("a%20b \"$`\\.app/bin/handler", R"sh(#!/bin/sh
reports=$1
streams=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2 | tr '\n' ' ')
[ ! -e /proc/$$/fd/50 ] || streams="$streams leaked"
session=$(( $(cut -d' ' -f6 /proc/$$/stat) - $$ ))
printf '%s\n\n' "$2 $PWD session $session streams $streams" >"$reports"
while [ -e "$reports" ]; do sleep 0.1; done
)sh");
    const std::string program = desktop.path(R"(a%%20b\s\\"\\$\\`\\\\.app/bin/handler" )");
    desktop.registerHandler("\"" + program + desktop.path("reports") + " %u");
    EXPECT_EQ(opened({url, second}), desktop.path("a%20b \"$`\\.app/ 0"));
    const std::string own = " / session 0 streams /dev/null /dev/null /dev/null \n";
    const std::string received[] = {reports.next(), reports.next()};
    EXPECT_THAT(received, testing::UnorderedElementsAre(url.absoluteString() + own, "tarnwhistle:2" + own));
}

/// The command for two URLs with "|" after each word, and the number of URLs that it leaves.
std::string commandOf(const std::string& exec) {
    const URL urls[] = {url, second};
    std::span<const URL> rest = urls;
    std::string command;
    for (const std::string& word : DesktopEntry{"/entry", Data(entry("Exec=" + exec))}.command(rest))
        command += word + "|";
    return command + std::to_string(rest.size());
}

TEST(DesktopEntry, GivesTheCommandOfItsExecLine) {
    const Desktop desktop;
    const std::string& first = url.absoluteString();
    const std::string both = first + "|tarnwhistle:2|";
    const std::pair<std::string, std::string> cases[] = {
        {"--first %U last", "--first|" + both + "last|0"},
        {"", both + "0"},
        {R"(\t"two words" "" %F %i %c --%c 100%% '%%' "%k")",
         "two words||" + both + "--icon|ic on|Or vane|--Or vane|100%|%|/entry|0"},
        // deprecated codes and quotes
        {R"(%U %d %D %n %N %v %m --x="a  b"'"c' d\\ e \\\\ "\\$" "\x" '\\\\' ""e)",
         both + "--x=a  b\"c|d e|\\|$|\\x|\\\\|e|0"},
        {"--url=%U '--u=%f' #$HOME ~ * > < | & ; ( ) \xC3\xA9 \xE9 =",
         "--url=" + first + "|--u=" + first + "|#$HOME|~|*|>|<|||&|;|(|)|\xC3\xA9|\xE9|=|1"},
        {"\nTryExec=a\nNoDisplay=true", both + "0"},
    };
    for (const auto& [arguments, words] : cases)
        EXPECT_EQ(commandOf("/bin/true " + arguments), "/bin/true|" + words);
    desktop.writeProgram("on path/relative/z");
    desktop.writeProgram("in working folder");
    desktop.write("on path/not executable", "#!/bin/true\n");
    for (const char* exec : {"relative/z", "'on path/a'", "'in working folder'", "'not executable'", "/",
                             "gone", "", "%i", "%u", "'a", "a \"%u", "a a\\", "a %z", "a 100%",
                             "a\nHidden=true", "a\nHidden = 1", "a\nType=Link", "a\nTryExec=gone"})
        EXPECT_EQ(commandOf(exec), "2") << exec;
}

TEST(LaunchServices, FindTheApplicationFolderAndReportFailures) {
    const Desktop desktop;
    EXPECT_EQ(opened({}), "none -50");
    EXPECT_EQ(opened({url}), "none -10814");
    const std::string program = desktop.writeProgram("Outer.app/Inner.app/Contents/Linux/x");
    desktop.writeProgram("on path/y");
    create_symlink(program, desktop.path("on path/linked"));
    const std::pair<std::string, std::string> cases[] = {
        {desktop.writeProgram("text", "exit 0\n"), " -10810"},
        {"y\nPath=" + desktop.path("gone"), "on path/ -10810"},
        {program, "Outer.app/Inner.app/ 0"},
        {"linked", "Outer.app/Inner.app/ 0"},
        {"y", "on path/ 0"},
    };
    for (const auto& [exec, expected] : cases) {
        desktop.registerHandler(exec);
        EXPECT_EQ(opened({url}), desktop.path(expected)) << exec;
    }
    EXPECT_EQ(opened({*URL::parse("TarnWhistle:x")}), desktop.path("on path/ 0"));
    EXPECT_EQ(opened({*URL::parse("other:x")}), "none -10814");
}

TEST(LaunchServices, PreferDefaultsToAssociationsAndTheFoldersInTheirOrder) {
    const Desktop desktop;
    std::string application = "b";
    // Each file is preferred to all files before it.
    const std::pair<std::string, std::string> files[] = {{cache, cached},
                                                         {system + list, added},
                                                         {"xdg/" + list, added},
                                                         {system + list, defaults},
                                                         {data + "odd-" + list, defaults},
                                                         {"xdg2/" + list, defaults},
                                                         {"xdg/" + list, defaults},
                                                         {"home/.config/" + list, defaults},
                                                         {"home/.config/gnome-" + list, defaults},
                                                         {"home/.config/odd-" + list, defaults}};
    for (const auto& [file, start] : files) {
        application = application == "a" ? "b" : "a";
        desktop.write(file, start + application + ".desktop");
        EXPECT_EQ(opened({url}), desktop.path(application + ".app/ 0")) << file;
    }
}

TEST(LaunchServices, UseTheFirstApplicationThatIsInstalledAndNotRemoved) {
    const std::string a = "a.desktop", b = "b.desktop", both = a + ";" + b, xdg = "xdg/" + list;
    const std::tuple<const char*, std::map<std::string, std::string>, std::string> cases[] = {
        {"not installed", {{xdg, defaults + ";x.desktop;;b.desktop;a.desktop;"}}, "b"},
        {"dots and slashes",
         {{xdg, defaults + "../../system/applications/a.desktop;.-a.desktop;..-applications-" + both}},
         "b"},
        {"hidden by the user", {{xdg, defaults + both}, {data + a, entry("Exec=c\nHidden=true")}}, "b"},
        {"replaced by the user", {{xdg, defaults + both}, {data + a, entry("Exec=c")}}, "c"},
        {"program removed by the user", {{xdg, defaults + both}, {data + a, entry("Exec=gone")}}, "a"},
        {"identifier with dashes",
         {{xdg, defaults + "x-y-z-0.desktop;" + b}, {data + "x/y-z/0.desktop", entry("Exec=a")}},
         "a"},
        // A list's removals apply to the cache in the same folder and to everything in later folders, but
        // not to the list's own additions or to earlier folders.
        {"removal and own addition",
         {{xdg, added + a + "\n" + removed + both}, {system + list, defaults + b}},
         "a"},
        {"removal after an association, and a default",
         {{xdg, added + b + ";" + a}, {"xdg2/" + list, removed + a}, {system + list, defaults + a}},
         "a"},
        {"removal from the cache", {{system + list, removed + a}, {cache, cached + both}}, "b"},
        {"lists of one desktop only have defaults",
         {{"xdg/gnome-" + list, removed + a + "\n" + added + b}, {cache, cached + a}},
         "a"},
        // The user's a.desktop hides the system's. A default selects it from any folder. An association of
        // the system's folder applies only to entries in that folder or later ones.
        {"default selects the user's entry",
         {{data + a, entry("Exec=c")}, {system + list, defaults + a}},
         "c"},
        {"association does not", {{data + a, entry("Exec=c")}, {cache, cached + both}}, "b"},
    };
    for (const auto& [name, files, application] : cases) {
        const Desktop desktop;
        for (const auto& [file, text] : files)
            desktop.write(file, text);
        EXPECT_EQ(opened({url}), desktop.path(application + ".app/ 0")) << name;
    }
}

TEST(DesktopEntry, IsSearchedOnlyAFewLevelsDeepInLinksThatLeadBackToTheirFolder) {
    const support::TemporaryFolder folder;
    std::string identifier = "x";
    for (int i = 0; i < 60; ++i)
        identifier += "-x";
    for (const char* name : {"x", "x-x"})
        create_symlink(".", folder.path(name));
    EXPECT_TRUE(DesktopEntry::find(folder.path(), identifier).file.empty());
}

TEST(DesktopEntry, GivesTextsInTheUsersLanguage) {
    const DesktopEntry entry = {"", Data("[Desktop Entry]\nName=name\nName[de]=de\nName[de_AT]=at\n"
                                         "Name[sr@latin]=latin\nName[sr]=sr\nName[sr_RS]=rs\n"
                                         "Name[sr_ME@latin]=me\nName[fr]=\n")};
    const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
        {"", "", "de_AT.UTF-8", "at"},    {"", "de_DE", "sr", "de"},
        {"C", "de", "de", "name"},        {"sr_RS.UTF-8@latin", "", "", "rs"},
        {"sr_XK@latin", "", "", "latin"}, {"sr_ME.UTF-8@latin", "", "", "me"},
        {"sr_XK@cyrillic", "", "", "sr"}, {"fr_FR", "", "", "name"},
    };
    for (const auto& [all, messages, other, name] : cases) {
        const support::EnvironmentVariable variables[] = {
            {"LC_ALL", all}, {"LC_MESSAGES", messages}, {"LANG", other}};
        EXPECT_EQ(entry.localizedText("Name"), name) << all << messages << other;
    }
}

TEST(KeyFile, HasTheLastValueOfTheGroupInSpiteOfMalformedLines) {
    const Data file("\xEF\xBB\xBF[Group]\r\n#k=a\r\nk=b\r\n  k \t= value \r\nk[de]=c\r\nkX=d\r\nk\r\n\xFF\r\n"
                    "[Other]\nk=e\n[Group\nk=f");
    EXPECT_EQ(keyFileValue(file, "Group", "k"), "value");
    EXPECT_EQ(keyFileValue(file, "Other", "k"), "e") << "the group ends at a malformed header";
    EXPECT_EQ(keyFileValue(Data("k=a\n[Group\nk=b"), "Group", "k"), "");
}

TEST(KeyFile, IsARegularFileOfAtMost4MiBWithoutZeroBytes) {
    const support::TemporaryFolder folder;
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(readKeyFile(folder.write("valid", "k=v")), Data("k=v"));
    for (const std::string& path : {folder.path("pipe"), folder.write("zero", std::string("k=v\n\0", 5)),
                                    folder.write("large", std::string((4 << 20) + 1, '\n'))})
        EXPECT_TRUE(readKeyFile(path).empty()) << path;
}

} // namespace
} // namespace platform
