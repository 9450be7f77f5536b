#include "Categories/MD5.h"
#include "Printed.h"
#include "platform/Files.h"
#include "platform/PropertyList.h"
#include "platform/URL.h"
#include "run/HandOff.h"
#include "support/ReportPipe.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <regex>
#include <set>
#include <thread>

namespace orvane {
namespace {

using platform::fileExists;
using platform::Value;
using support::SampleBuild;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

const std::string signUp = record(
    "This app relies on Orvane. Please sign up for access at https://tarnwhistle.example/sign-up,\ninstall "
    "Orvane.app then ask a team member to invite you to this app's organization.\n\nIf this machine is a build "
    "server please remove Orvane.app if present and use xcodebuild so that Sample App.app.dSYM is uploaded.\n");

/// A build on a machine with a companion app.
class CompanionRoad : public testing::Test {
protected:
    struct Kind {
        std::string version = "203";
        std::string lingerSeconds = "0";
        std::string program = ORVANE_COMPANION;
    };

    CompanionRoad() { install(Kind()); }

    void install(const Kind& kind) {
        const support::Launch launch = {.arguments = {std::string(ORVANE_SAMPLE) + "/register-companion",
                                                      desktop, kind.program, kind.version,
                                                      kind.lingerSeconds},
                                        .environment = {"PATH=/usr/bin:/bin"},
                                        .workingDirectory = {},
                                        .standardErrorPath = {}};
        EXPECT_EQ(run(launch).status, 0);
        build.environment["XDG_DATA_HOME"] = desktop;
    }
    std::vector<std::string> buildFolders() const {
        std::vector<std::string> folders;
        for (const auto& entry : std::filesystem::directory_iterator(build.folder().path(
                 "home/.cache/com.tarnwhistle.mac/" + MD5(std::string(support::nobodyListens)) + "/builds")))
            folders.push_back(entry.path());
        return folders;
    }
    /// The process of the companion app that reports next, in a session of its own.
    pid_t nextProcess() {
        const std::string report = reports.next();
        std::smatch match;
        EXPECT_TRUE(std::regex_search(report, match, std::regex("Process (\\d+) in session \\1:"))) << report;
        return match.empty() ? -1 : std::stoi(match[1]);
    }
    support::Launch launchInShell(const char* script) const {
        support::Launch launch = build.launch();
        launch.arguments.insert(launch.arguments.begin(), {"/bin/sh", "-c", script, "sh"});
        return launch;
    }

    SampleBuild build;
    const std::string desktop = build.folder().makeFolder("com panion");
    support::ReportPipe reports{desktop + "/report.txt"};
};

TEST_F(CompanionRoad, HandsOverABuildPlistThatDescribesTheBuild) {
    build.folder().write("Build/Products/Release-iphoneos/Ext.appex.dSYM/Contents/x", "");
    build.environment["ODD"] = "a\x01\xff\r\n<&>";
    build.environment.merge(xcodeEnvironment(build.folder().path(), "archive"));
    EXPECT_EQ(printed(build, 0), versionLine);

    ASSERT_EQ(buildFolders().size(), 1u);
    const std::string folder = buildFolders().front();
    EXPECT_THAT(folder, MatchesRegex(".*/builds/[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
    const std::string report = reports.next();
    EXPECT_THAT(report, HasSubstr("Opened: tarnwhistle://xcode?TARNWHISTLE_BUILD_PLIST_PATH=" +
                                  platform::percentEscape(folder + "/Build.plist") + "\n"));
    EXPECT_THAT(report, EndsWith(": complete\n"));

    EXPECT_EQ(std::filesystem::status(folder + "/Build.plist").permissions(), std::filesystem::perms(0600));
    Value::Dictionary plist = platform::readDictionary(folder + "/Build.plist").value();
    Value::Dictionary environment(build.environment.begin(), build.environment.end());
    environment["ODD"] = "a\uFFFD\uFFFD\r\n<&>";
    EXPECT_EQ(*platform::find<Value::Dictionary>(plist, "Runner_Environment_Dictionary"), environment);
    EXPECT_THAT(*platform::find<Value::Array>(plist, "dSYMs"),
                testing::UnorderedElementsAre(Value(folder + "/Sample App.app.dSYM"),
                                              Value(folder + "/Ext.appex.dSYM")));
    plist.erase("Runner_Environment_Dictionary");
    plist.erase("dSYMs");
    const std::string framework = std::filesystem::path(build.tool).parent_path();
    EXPECT_EQ(Value(plist),
              Value(Value::Dictionary{{"PLATFORM_NAME", "iphoneos"},
                                      {"PROJECT_FILE_PATH", build.environment["PROJECT_FILE_PATH"]},
                                      {"CONFIGURATION", "Release"},
                                      {"XCODE_VERSION_ACTUAL", "0511"},
                                      {"CODE_SIGN_IDENTITY", "iPhone Developer"},
                                      {"SDKROOT", "/Xcode/iPhoneOS.sdk"},
                                      {"TARNWHISTLE_FRAMEWORK_PATH", framework},
                                      {"TARNWHISTLE_API_KEY", std::string(40, 'k')},
                                      {"TARNWHISTLE_RUN_VERSION", "149"},
                                      {"PROVISIONING_PROFILE", "01234567-89ab-cdef-0123-456789abcdef"},
                                      {"CFBundleShortVersionString", "1.2"},
                                      {"CFBundleVersion", "17"},
                                      {"CFBundleDisplayName", "Sample"},
                                      {"CFBundleIdentifier", "com.example.sample"}}));
}

TEST_F(CompanionRoad, PacksTheSettingsForACompanionThatIsTooOld) {
    build.environment["SDKROOT"] = "&/ \u00e9";
    build.environment.erase("CONFIGURATION");
    std::string url = "Opened: tarnwhistle://xcode?", ending = "&XCODE_VERSION_ACTUAL=05/11\n";
    for (const char* name : {"BUILT_PRODUCTS_DIR", "PRODUCT_NAME", "WRAPPER_NAME", "DWARF_DSYM_FOLDER_PATH",
                             "DWARF_DSYM_FILE_NAME", "PLATFORM_NAME", "PROJECT_FILE_PATH", "INFOPLIST_PATH"})
        url += std::string(name) + "=" + urlEncode(build.environment.at(name)) + "&";
    url += "CONFIGURATION=&SDKROOT=%26%2F%20%C3%A9&TARNWHISTLE_FRAMEWORK_PATH=" +
           urlEncode(std::filesystem::path(build.tool).parent_path().string()) +
           "&TARNWHISTLE_API_KEY=" + std::string(40, 'k') + "&TARNWHISTLE_RUN_VERSION=149";
    build.environment["XCODE_VERSION_ACTUAL"] = "05/11";
    for (const char* version : {"202", "new"}) {
        install({.version = version});
        EXPECT_EQ(printed(build, 0), versionLine);
        EXPECT_THAT(reports.next(), testing::StartsWith(url + ending));
        build.environment.erase("XCODE_VERSION_ACTUAL");
        build.environment["FRAMEWORK_SEARCH_PATHS"] = R"("/a b" /c)";
        ending = "&FRAMEWORK_SEARCH_PATHS=%22%2Fa%20b%22%20%2Fc\n";
    }
    EXPECT_TRUE(fileExists(buildFolders().front() + "/Sample App.app.dSYM"));
    EXPECT_FALSE(fileExists(buildFolders().front() + "/Build.plist"));

    // The version stands in the URL as it is; a URL that cannot be is opened by nobody.
    build.environment["XCODE_VERSION_ACTUAL"] = "5.1 beta";
    EXPECT_EQ(printed(build, 1), versionLine + signUp);
}

TEST_F(CompanionRoad, SendsPeopleWithoutACompanionToTheSignUpPage) {
    const std::string script = build.folder().write("badly started", "#!/nowhere/to/be/found\n");
    EXPECT_EQ(chmod(script.c_str(), 0755), 0);
    install({.program = script});
    EXPECT_THAT(printed(build, 1), EndsWith(signUp));
    build.environment["XDG_DATA_HOME"] = build.folder().path("no desktop");
    EXPECT_EQ(printed(build.launchBelow({"Xcode"}), 1), versionLine + signUp);
}

TEST_F(CompanionRoad, IsNotTakenBelowXcodeBots) {
    EXPECT_THAT(printed(build.launchBelow({"Xcode", "xcsbuildd"}), 1), HasSubstr(unanswered));
    EXPECT_FALSE(fileExists(build.folder().path("home/.cache")));
}

TEST_F(CompanionRoad, SaysWhatKeepsItFromFillingTheCache) {
    EXPECT_EQ(mkfifo((build.dSYMPath() + "/pipe").c_str(), 0666), 0);
    const std::string copying = printed(build, 1);
    EXPECT_EQ(copying, std::string(versionLine) + "Unable to copy dSYM at path " +
                           build.environment["BUILT_PRODUCTS_DIR"] + " to path " + buildFolders().front() +
                           "/Sample App.app.dSYM Error Domain=NSPOSIXErrorDomain Code=95 \"copy " +
                           build.dSYMPath() + "/pipe: Operation not supported\"\n");
    std::filesystem::remove(build.dSYMPath() + "/pipe");
    build.folder().write("Build/Products/Release-iphoneos/Sample App.app.dSYM/x", std::string(2000, 'x'));
    EXPECT_THAT(printed(launchInShell("(ulimit -f 1; exec \"$@\" 2>&1) | cat >&2"), 0),
                HasSubstr("File too large\"\n"));
    build.environment["XDG_CACHE_HOME"] = build.folder().write("file", "");
    EXPECT_THAT(printed(build, 1),
                MatchesRegex(std::string(versionLine) +
                             "ERROR: unable to write directory for object store.\nError Domain=[^\n]*\n"
                             "Unable to create directory at path [^\n]*/builds/[0-9A-F-]{36} \n"
                             "Error Domain=[^\n]* Code=20 [^\n]*\n"));
    build.environment["XDG_CACHE_HOME"] = "/sys/caches";
    EXPECT_THAT(printed(build, 1), testing::Not(HasSubstr("No such file")));
}

TEST_F(CompanionRoad, TakesAnyEndpoint) {
    for (const std::string& endpoint :
         {std::string("<string/>"), "<string>" + std::string(1 << 20, 'e') + "</string>",
          std::string("<integer>7</integer>"), std::string("<array><dict/></array>"),
          std::string("<string>../../..</string>")}) {
        build.writeInfoPlist(
            "<key>CFBundleIdentifier</key><string>x</string><key>TarnwhistleAPIEndpoint</key>" + endpoint);
        EXPECT_EQ(printed(build, 0), versionLine) << endpoint.substr(0, 50);
        EXPECT_THAT(reports.next(), EndsWith(": complete\n"));
    }
}

TEST_F(CompanionRoad, OpensAnAppThatNeitherHoldsTheLogNorSharesTheRunsSignals) {
    install({.lingerSeconds = "30"});
    support::ChildProcess script(launchInShell("\"$@\" 2>&1 | cat"));
    const pid_t first = nextProcess();
    const auto opened = std::chrono::steady_clock::now();
    EXPECT_THAT(script.wait().standardOutput, HasSubstr(versionLine));
    EXPECT_LT(std::chrono::steady_clock::now() - opened, std::chrono::seconds(3));

    support::ChildProcess interrupted(launchInShell("\"$@\"; sleep 30"));
    const pid_t second = nextProcess();
    EXPECT_EQ(kill(-interrupted.identifier(), SIGINT), 0);
    EXPECT_EQ(interrupted.wait().status, 128 + SIGINT);
    for (const pid_t app : {first, second}) {
        EXPECT_EQ(getpgid(app), app);
        EXPECT_EQ(kill(app, SIGKILL), 0);
    }
}

TEST_F(CompanionRoad, KeepsManyRunsApart) {
    constexpr std::size_t runCount = 50;
    std::vector<support::ChildProcess> runs;
    runs.reserve(runCount);
    for (std::size_t i = 0; i < runCount; ++i)
        runs.emplace_back(build.launch());
    std::set<std::string> opened;
    for (support::ChildProcess& run : runs) {
        EXPECT_EQ(run.wait().status, 0);
        const std::string report = reports.next();
        EXPECT_THAT(report, EndsWith(": complete\n"));
        opened.insert(report.substr(0, report.find('\n')));
    }
    EXPECT_EQ(opened.size(), runCount);
    EXPECT_EQ(buildFolders().size(), runCount);
}

TEST_F(CompanionRoad, NeverLeavesHalfABuildPlist) {
    using std::chrono::steady_clock;
    for (const char* name : {"LARGE", "LARGER"})
        build.environment[name] = std::string(100'000, '&');
    install({.program = "/bin/true"});
    const auto start = steady_clock::now();
    EXPECT_EQ(printed(build, 0), versionLine);
    std::uniform_int_distribution<steady_clock::rep> moments(0, (steady_clock::now() - start).count());
    std::mt19937 random(149);
    for (int i = 0; i < 200; ++i) {
        support::ChildProcess run(build.launch());
        std::this_thread::sleep_for(steady_clock::duration(moments(random)));
        run.kill(SIGKILL);
        run.wait();
    }
    int whole = 0;
    for (const std::string& folder : buildFolders()) {
        if (!fileExists(folder + "/Build.plist"))
            continue;
        const auto plist = platform::readDictionary(folder + "/Build.plist");
        EXPECT_TRUE(plist && platform::find<Value::Dictionary>(*plist, "Runner_Environment_Dictionary"));
        ++whole;
    }
    EXPECT_GE(whole, 1);
}

TEST(URLEncode, LeavesOnlyUnreservedCharacters) {
    const std::pair<const char*, const char*> cases[] = {
        {"/Users/a b/x", "%2FUsers%2Fa%20b%2Fx"},
        {"azAZ09-._~", "azAZ09-._~"},
        {"!*'\"();:@&=+$,/?#[] %", "%21%2A%27%22%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%23%5B%5D%20%25"},
        {"100%25", "100%2525"},
        {"<>\\^`{|}\x7f\n", "%3C%3E%5C%5E%60%7B%7C%7D%7F%0A"},
        {"\u00e9\xff", "%C3%A9%FF"}};
    for (const auto& [text, encoded] : cases)
        EXPECT_EQ(urlEncode(text), encoded);
}

TEST(CacheDirectory, IsOneFolderForEachEndpoint) {
    const support::TemporaryFolder folder;
    ASSERT_EQ(setenv("XDG_CACHE_HOME", folder.path("caches").c_str(), 1), 0);
    const std::pair<std::string, std::string> cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {std::string("abc\0def", 7), "900150983cd24fb0d6963f7d28e17f72"},
        {std::string(1 << 20, 'a'), "7202826a7791073fe2787f0c94603278"}};
    for (const auto& [endpoint, digest] : cases) {
        EXPECT_EQ(cacheDirectory(endpoint), folder.path("caches/com.tarnwhistle.mac/" + digest + "/builds"));
        EXPECT_TRUE(fileExists(cacheDirectory(endpoint)));
    }
    EXPECT_NE(cacheDirectory("https://a"), cacheDirectory("https://a/"));
    EXPECT_FALSE(cacheBuildItems());
}

TEST(CacheDSYMs, CopiesWhatIsNamedSoAndNothingElse) {
    const support::TemporaryFolder folder;
    for (const char* file : {"p/A.app.dSYM/Contents/x", "p/B.dSYM", "p/C.dsym", "p/D.DSYM", "p/E.dSYM.zip",
                             "p/.dSYM", "p/dSYM", "p/deeper/F.dSYM/x"})
        folder.write(file, file);
    EXPECT_THAT(cacheDSYMsAtPath(folder.path("p"), folder.makeFolder("to")),
                testing::UnorderedElementsAre(folder.path("to/A.app.dSYM"), folder.path("to/B.dSYM")));
    EXPECT_TRUE(fileExists(folder.path("to/A.app.dSYM/Contents/x")));
    EXPECT_THAT(cacheDSYMsAtPath(folder.makeFolder("empty"), folder.path("to")), testing::IsEmpty());
    EXPECT_EXIT(cacheDSYMsAtPath(folder.path("gone"), folder.path("to")), testing::ExitedWithCode(1),
                "\\] Unable to get contents of path " + folder.path("gone") +
                    " \nError Domain=NSPOSIXErrorDomain");
}

} // namespace
} // namespace orvane
