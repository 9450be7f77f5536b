#include "platform/launchservices/LaunchServices.h"
#include "support/ChildProcess.h"
#include "support/EnvironmentVariable.h"
#include "support/ReportPipe.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

namespace platform {
namespace {

using std::filesystem::create_symlink;

constexpr const char* url = "tarnwhistle://xcode?a=%20b";

/// A user's desktop with the applications a, b and c in the system's data folder.
class Desktop {
public:
    Desktop() {
        std::filesystem::create_directory(folder.path("on path"));
        for (const std::string name : {"a", "b", "c"}) {
            create_symlink(writeProgram(name + ".app/bin"), folder.path("on path/" + name));
            write("system/applications/" + name + ".desktop", "Exec=" + name);
        }
    }

    std::string writeProgram(std::string_view name, const std::string& text = "#!/bin/true\n") const {
        std::string path = folder.write(name, text);
        EXPECT_EQ(chmod(path.c_str(), 0755), 0);
        return path;
    }
    /// Writes a desktop entry with the usual first lines, or another file; "mimeapps.list" is added to a name
    /// that ends with "/" or "-". "@" stands for the URL's MIME type. Returns the path.
    std::string write(std::string name, const std::string& text) const {
        const std::string start = "[Desktop Entry]\nType=Application\nName=Or vane\nIcon=ic on\n";
        const bool isEntry = name.ends_with(".desktop") && !text.starts_with('[');
        name += name.ends_with('/') || name.ends_with('-') ? "mimeapps.list" : "";
        return folder.write(name,
                            (isEntry ? start : "") +
                                std::regex_replace(text, std::regex("@"), "x-scheme-handler/tarnwhistle"));
    }
    void registerHandler(const std::string& exec) const {
        write("data/applications/handler.desktop",
              "DBusActivatable=true\nTerminal=true\nPath=/\nExec=" + exec + "\n");
        write("data/applications/", "[Default Applications]\n@=handler.desktop\n");
    }
    /// The application for the first URL, and the status of opening all of them.
    std::string open(const std::vector<std::string>& texts) const {
        std::filesystem::current_path(folder.path());
        std::vector<URL> urls;
        urls.reserve(texts.size());
        for (const std::string& text : texts)
            urls.push_back(URL::parse(text).value());
        const auto application = urls.empty() ? std::nullopt : applicationForURL(urls.front());
        const std::int32_t status = openURLs(urls);
        std::filesystem::current_path("/");
        return (application ? application->path() : "none") + "\n" + std::to_string(status) + "\n";
    }

    support::TemporaryFolder folder;

private:
    const support::EnvironmentVariable _environment[8] = {
        {"LC_ALL", "C"},
        {"HOME", folder.path("home")},
        {"XDG_CONFIG_HOME", "relative"},
        {"XDG_CONFIG_DIRS", folder.path("xdg") + ":" + folder.path("xdg2")},
        {"XDG_DATA_HOME", folder.path("data")},
        {"XDG_DATA_DIRS", "relative:" + folder.path("none") + ":" + folder.path("system")},
        {"XDG_CURRENT_DESKTOP", "Odd:GNOME"},
        {"PATH", folder.path("on path") + ":/usr/bin:/bin:."}};
};

TEST(LaunchServices, PassURLsAsTheExecLineRequires) {
    dup2(STDOUT_FILENO, 50);
    const Desktop desktop;
    support::ReportPipe reports(desktop.folder.path("reports"));
    // Each report is one write, because two programs may write at the same time. The handler may outlive the
    // opening.
    desktop.writeProgram("a%20b \"$`\\.app/bin/handler", R"sh(#!/bin/sh
reports=')sh" + desktop.folder.path("reports") + R"sh('
streams=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2 | tr '\n' ' ')
[ ! -e /proc/$$/fd/50 ] || streams="$streams leaked"
session=$(( $(cut -d' ' -f6 /proc/$$/stat) - $$ ))
report=$(printf '%s|' "$@")
printf '%s\n\n' "$report$PWD session $session streams $streams" >"$reports"
while [ -e "$reports" ]; do sleep 0.1; done
)sh");
    const std::string program = "\"" + desktop.folder.path(R"(a%%20b\s\\"\\$\\`\\\\.app/bin/handler" )");
    const std::string own = "/ session 0 streams /dev/null /dev/null /dev/null \n";
    const std::string second = "tarnwhistle:2", both = std::string(url) + "|" + second + "|";
    const std::string rest = "|#$HOME|~|*|>|<|||&|;|(|)|\xC3\xA9|\xE9|=|" + own;
    const struct {
        const char* name;
        std::string arguments;
        std::vector<std::string> expected;
    } cases[] = {
        {"list", "--first %U last", {"--first|" + both + "last|" + own}},
        {"no code", "", {both + own}},
        {"all codes",
         R"(\t"two words" "" %F %i %c --%c 100%% '%%' "%k")",
         {"two words||" + both + "--icon|ic on|Or vane|--Or vane|100%|%|" +
          desktop.folder.path("data/applications/handler.desktop|") + own}},
        {"deprecated codes and quotes",
         R"(%U %d %D %n %N %v %m --x="a  b"'"c' d\\ e \\\\ "\\$" "\x" '\\\\' ""e)",
         {both + "--x=a  b\"c|d e|\\|$|\\x|\\\\|e|" + own}},
        {"one URL for each program, and the shell's characters",
         "--url=%U '--u=%f' #$HOME ~ * > < | & ; ( ) \xC3\xA9 \xE9 =",
         {"--url=" + std::string(url) + "|--u=" + url + rest, "--url=" + second + "|--u=" + second + rest}},
    };
    for (const auto& [name, arguments, expected] : cases) {
        SCOPED_TRACE(name);
        desktop.registerHandler(program + arguments);
        EXPECT_EQ(desktop.open({url, second}), desktop.folder.path("a%20b \"$`\\.app/\n0\n"));
        std::vector<std::string> received;
        for (std::size_t i = 0; i < expected.size(); ++i)
            received.push_back(reports.next());
        EXPECT_THAT(received, testing::UnorderedElementsAreArray(expected));
    }
}

TEST(LaunchServices, FindTheAppFolderAndReportFailures) {
    const Desktop desktop;
    const support::TemporaryFolder& folder = desktop.folder;
    EXPECT_EQ(desktop.open({}), "none\n-50\n");
    EXPECT_EQ(desktop.open({url}), "none\n-10814\n");
    const std::string program = desktop.writeProgram("Outer.app/Inner.app/Contents/Linux/x");
    desktop.writeProgram("on path/y");
    desktop.writeProgram("on path/relative/z");
    desktop.writeProgram("in working folder");
    create_symlink(program, folder.path("on path/linked"));
    const std::string absent = "none\n-10814\n", refused = folder.path() + "/\n-10810\n";
    const std::pair<std::string, std::string> cases[] = {
        {program, folder.path("Outer.app/Inner.app/") + "\n0\n"},
        {"y %u", folder.path("on path/") + "\n0\n"},
        {"linked", folder.path("Outer.app/Inner.app/") + "\n0\n"},
        {desktop.writeProgram("text", "exit 0\n"), refused},
        {desktop.writeProgram("empty", ""), refused},
        {"y\nPath=" + folder.path("gone"), folder.path("on path/") + "\n-10810\n"},
        {folder.write("not executable", "#!/bin/sh\n"), absent},
        {"y\nTryExec=y\nNoDisplay=true", folder.path("on path/") + "\n0\n"},
    };
    for (const auto& [exec, expected] : cases) {
        desktop.registerHandler(exec);
        EXPECT_EQ(desktop.open({url}), expected) << exec;
    }
    for (const char* exec :
         {"relative/z", "'on path/y'", "'in working folder'", "/", "gone", "", "%i", "%u", "'y", "y \"%u",
          "y a\\", "y %z", "y 100%", "y\nHidden=true", "y\nHidden = 1", "y\nType=Link", "y\nTryExec=gone"}) {
        desktop.registerHandler(exec);
        EXPECT_EQ(desktop.open({url}), absent) << exec;
    }
    desktop.registerHandler("y");
    EXPECT_THAT(desktop.open({"TarnWhistle:x"}), testing::EndsWith("on path/\n0\n"));
    EXPECT_EQ(desktop.open({"other:x"}), absent);
}

const std::string defaults = "[Default Applications]\n@=", added = "[Added Associations]\n@=",
                  removed = "[Removed Associations]\n@=", cached = "[MIME Cache]\n@=";
const std::string config = "home/.config/", data = "data/applications/", system = "system/applications/",
                  cache = system + "mimeinfo.cache", a = "a.desktop", b = "b.desktop", both = a + ";" + b;

struct File {
    std::string name, text;
};

/// Files of a desktop, and the application that is opened with them.
struct Case {
    const char* name;
    std::vector<File> files;
    std::string application;
};

void expectApplications(const std::vector<Case>& cases) {
    for (const auto& [name, files, application] : cases) {
        SCOPED_TRACE(name);
        const Desktop desktop;
        for (const File& file : files)
            desktop.write(file.name, file.text);
        EXPECT_EQ(desktop.open({url}), desktop.folder.path(application + ".app/\n0\n"));
    }
}

TEST(LaunchServices, UseTheFirstDefaultThatIsInstalled) {
    expectApplications({
        // Folder by folder; in each folder the files of the current desktop come first.
        {"desktops", {{config + "odd-", defaults + a}, {config + "gnome-", defaults + b}}, "a"},
        {"desktop before all desktops", {{config + "gnome-", defaults + a}, {config, defaults + b}}, "a"},
        {"user before system", {{config, defaults + a}, {"xdg/gnome-", defaults + b}}, "a"},
        {"system folders in their order", {{"xdg/", defaults + a}, {"xdg2/", defaults + b}}, "a"},
        {"configuration before data", {{"xdg2/", defaults + a}, {data, defaults + b}}, "a"},
        {"user's data before the system's", {{data, defaults + a}, {system + "odd-", defaults + b}}, "a"},
        // Applications that are not installed are skipped.
        {"not installed", {{"xdg/", defaults + ";x.desktop;;b.desktop;a.desktop;"}}, "b"},
        {"dots and slashes",
         {{"xdg/", defaults + "../../system/applications/a.desktop;.-a.desktop;..-applications-" + both}},
         "b"},
        {"hidden by the user", {{"xdg/", defaults + both}, {data + a, "Exec=c\nHidden=true"}}, "b"},
        {"replaced by the user", {{"xdg/", defaults + both}, {data + a, "Exec=c"}}, "c"},
        {"program removed by the user", {{"xdg/", defaults + a}, {data + a, "Exec=gone"}}, "a"},
        {"link instead of an application", {{"xdg/", defaults + a}, {data + a, "Exec=c\nType=Link"}}, "a"},
        {"no command", {{"xdg/", defaults + a}, {data + a, "DBusActivatable=true"}}, "a"},
        {"no group", {{"xdg/", defaults + a}, {data + a, "[Other]\nExec=c"}}, "a"},
        {"identifier with dashes",
         {{"xdg/", defaults + "x-y-z.desktop"},
          {data + "x/y-z.desktop", "Exec=b"},
          {system + "x/y/z.desktop", "Exec=a"}},
         "b"},
    });
}

TEST(LaunchServices, UseAssociationsAfterAllDefaults) {
    expectApplications({
        {"default of a later folder", {{"xdg/", added + a}, {system, defaults + b}}, "b"},
        {"list before cache", {{system, added + a}, {cache, cached + b}}, "a"},
        // A list's removals apply to the cache in the same folder and to everything in later folders, but
        // not to the list's own additions or to earlier folders.
        {"removal and own addition",
         {{"xdg/", added + a + "\n" + removed + both}, {system, defaults + b}},
         "a"},
        {"removal in a later folder", {{"xdg/", added + a}, {"xdg2/", removed + a}}, "a"},
        {"removal after an association, and a default",
         {{"xdg/", added + b + ";" + a}, {"xdg2/", removed + a}, {system, defaults + a}},
         "a"},
        {"removal from the cache", {{system, removed + a}, {cache, cached + both}}, "b"},
        {"lists of one desktop only have defaults",
         {{"xdg/gnome-", removed + a + "\n" + added + b}, {cache, cached + a}},
         "a"},
        // The user's a.desktop hides the system's. A default selects it from any folder. An association of
        // the system's folder applies only to entries in that folder or later ones.
        {"default selects the user's entry", {{data + a, "Exec=c"}, {system, defaults + a}}, "c"},
        {"association does not", {{data + a, "Exec=c"}, {cache, cached + both}}, "b"},
    });
}

TEST(LaunchServices, SearchLinksThatLeadBackToTheirFolderOnlyAFewLevelsDeep) {
    const Desktop desktop;
    std::string identifier = "x";
    for (int i = 0; i < 60; ++i)
        identifier += "-x";
    desktop.write("xdg/", defaults + identifier + ".desktop;" + a);
    for (const char* name : {"x", "x-x"})
        create_symlink(".", desktop.folder.path(system + name));
    EXPECT_THAT(desktop.open({url}), testing::StartsWith(desktop.folder.path("a.app/")));
}

TEST(LaunchServices, PassTheNameInTheUsersLanguage) {
    const Desktop desktop;
    support::ReportPipe reports(desktop.folder.path("reports"));
    desktop.writeProgram("n.app/n",
                         "#!/bin/sh\nprintf '%s\\n\\n' \"$1\" >'" + desktop.folder.path("reports") + "'\n");
    desktop.write(data, defaults + "n.desktop");
    desktop.folder.write(data + "n.desktop",
                         "[Desktop Entry]\nType=Application\nName=name\nName[de]=de\n"
                         "Name[de_AT]=at\nName[sr@latin]=latin\nName[sr]=sr\nName[sr_RS]=rs\n"
                         "Name[sr_ME@latin]=me\nName[fr]=\nExec=\"" +
                             desktop.folder.path("n.app/n") + "\" %c\n");
    const struct {
        const char *all, *messages, *other, *name;
    } cases[] = {
        {"", "", "de_AT.UTF-8", "at"},    {"", "de_DE", "sr", "de"},
        {"C", "de", "de", "name"},        {"sr_RS.UTF-8@latin", "", "", "rs"},
        {"sr_XK@latin", "", "", "latin"}, {"sr_ME.UTF-8@latin", "", "", "me"},
        {"sr_XK@cyrillic", "", "", "sr"}, {"fr_FR", "", "", "name"},
    };
    for (const auto& [all, messages, other, name] : cases) {
        const support::EnvironmentVariable variables[] = {
            {"LC_ALL", all}, {"LC_MESSAGES", messages}, {"LANG", other}};
        EXPECT_THAT(desktop.open({url}), testing::EndsWith("\n0\n"));
        EXPECT_EQ(reports.next(), std::string(name) + "\n") << all << messages << other;
    }
}

TEST(LaunchServices, ReadUnusualFilesAndSkipInvalidOnes) {
    const std::string valid = "[Default Applications]\n@=a.desktop\n";
    const struct {
        const char* name;
        File file;
        std::string change, application; // the change is a command for the file "$F"
    } cases[] = {
        {"blanks, comments, line ends of Windows",
         {"xdg/",
          "\xEF\xBB\xBF[Default Applications]\r\n#@=a\r\n@=a.desktop\r\n  @ \t= c.desktop \r\n[X]\n@=a.desktop"},
         "",
         "c"},
        {"malformed lines",
         {"xdg/", "@=a.desktop\n[Default Applications\n@=a.desktop\n[Default Applications]\nno value\n"
                  "@/x=a.desktop\n@\n@=c.desktop"},
         "",
         "c"},
        {"similar keys, ISO 8859-1",
         {system + "w.desktop", "Exec = c\nExec[de]=a\nExecX=a\nComment=\xFF\n[Desktop Action x]\nExec=a\n"},
         "",
         "c"},
        {"pipe", {"xdg/", valid}, "rm $F; mkfifo $F", "b"},
        {"endless device", {"xdg/", valid}, "ln -sf /dev/zero $F", "b"},
        {"link to itself", {"xdg/", valid}, "rm $F; ln -s $F $F", "b"},
        {"folder", {"xdg/", valid}, "rm $F; mkdir $F", "b"},
        {"too large", {"xdg/", valid}, "printf %5000000s >> $F", "b"},
        {"zero byte", {"xdg/", valid}, "truncate -s +1 $F", "b"},
        {"cache with a zero byte", {data + "mimeinfo.cache", cached + a}, "truncate -s +1 $F", "b"},
    };
    for (const auto& [name, file, change, application] : cases) {
        SCOPED_TRACE(name);
        const Desktop desktop;
        desktop.write(cache, "[MIME Cache]\n@=w.desktop;b.desktop\n");
        const std::string path = desktop.write(file.name, file.text);
        support::outputOf(std::string("F='").append(path).append("'; ").append(change));
        EXPECT_THAT(desktop.open({url}), testing::StartsWith(desktop.folder.path(application + ".app/")));
    }
}

} // namespace
} // namespace platform
