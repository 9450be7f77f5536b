#include "Categories/MD5.h"
#include "SampleBuild.h"
#include "platform/files/Files.h"
#include "platform/propertylist/PropertyList.h"
#include "run/DSYMCache.h"
#include "run/FrameworkProbes.h"
#include "run/HandOff.h"
#include "support/ReportPipe.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <thread>

namespace orvane {
namespace {

using platform::fileExists;
using platform::Value;
using std::chrono::steady_clock;
using namespace testing;

const std::string signUp = record(
    "This app relies on Orvane. Please sign up for access at https://tarnwhistle.example/sign-up,\ninstall "
    "Orvane.app then ask a team member to invite you to this app's organization.\n\nIf this machine is a build "
    "server please remove Orvane.app if present and use xcodebuild so that Sample App.app.dSYM is uploaded.\n");

/// A build on a machine with a companion app.
class CompanionRoad : public testing::Test {
protected:
    CompanionRoad() {
        install("203");
        build.environment["XDG_DATA_HOME"] = desktop;
    }

    void install(const std::string& version, const std::string& program = ORVANE_COMPANION) const {
        support::outputOf(ORVANE_SAMPLE "/register-companion '" + desktop + "' '" + program + "' " + version);
    }
    std::vector<std::string> buildFolders(const std::string& endpoint = nobodyListens) const {
        std::vector<std::string> folders;
        for (const auto& entry : std::filesystem::directory_iterator(
                 build.folder.path("home/.cache/com.tarnwhistle.mac/" + MD5(endpoint) + "/builds")))
            folders.push_back(entry.path());
        return folders;
    }

    SampleBuild build;
    const std::string framework = std::filesystem::path(build.tool).parent_path();
    const std::string desktop = build.folder.makeFolder("com %20panion");
    support::ReportPipe reports{desktop + "/report.txt"};
};

TEST_F(CompanionRoad, IsTakenIfTheCompanionOrXcodeIsThereButNotBelowXcodeBots) {
    const std::string fromXcode = record("Run script build phase called from Xcode.app 1") +
                                  record("Sending data to Orvane.app") + signUp;
    const std::string fromElsewhere = record("Run script build phase called from Xcode.app 0") + unanswered;
    const std::string opened =
        record("Install path file://" + build.folder.path("com%20%2520panion/Orvane.app/")) +
        record("Sending data to Orvane.app");
    const struct {
        std::string data;
        std::vector<std::string> parents;
        std::string messages;
    } cases[] = {
        {"/none", {"Xcode-beta"}, "0\n" + fromElsewhere},
        {"/none", {"Xcode", "a (b) c\n)"}, "0\n" + fromXcode},
        {desktop, {"Xcode", "xcsbuildd"}, "1\n" + unanswered},
        {desktop, {}, "0\n" + opened},
    };
    build.arguments.insert(build.arguments.end(), {"-debug", "YES"});
    for (const auto& [data, parents, messages] : cases) {
        build.environment["XDG_DATA_HOME"] = data;
        EXPECT_THAT(printed(build.launchBelow(parents), messages.ends_with(opened) ? 0 : 1),
                    HasSubstr("\n\nOrvane: Run script build phase called from Xcode Bots " + messages));
    }
}

TEST_F(CompanionRoad, CopiesEachDSYMToAFolderForTheBuild) {
    for (const char* name : {"Ext.appex.dSYM/Contents/x", "B.dSYM", "C.dsym", "D.DSYM", "E.dSYM.zip", ".dSYM",
                             "dSYM", "deeper/F.dSYM/x"})
        build.writeProduct(name, "");
    EXPECT_EQ(printed(build, 0), versionLine);
    ASSERT_EQ(buildFolders().size(), 1u);
    const std::string folder = buildFolders().front();
    EXPECT_THAT(folder, MatchesRegex(".*/builds/[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
    const std::string report = reports.next();
    EXPECT_THAT(report, HasSubstr("Opened: tarnwhistle://xcode?TARNWHISTLE_BUILD_PLIST_PATH=" +
                                  urlEncode(folder + "/Build.plist") + "\n"));
    EXPECT_THAT(report, EndsWith(": complete\n"));
    const Value dSYMs = platform::readDictionary(folder + "/Build.plist").value().at("dSYMs");
    EXPECT_THAT(*dSYMs.as<Value::Array>(),
                UnorderedElementsAre(Value(folder + "/Sample App.app.dSYM"), Value(folder + "/B.dSYM"),
                                     Value(folder + "/Ext.appex.dSYM")));
    EXPECT_TRUE(fileExists(folder + "/Ext.appex.dSYM/Contents/x"));
}

TEST_F(CompanionRoad, PassesABuildPlistThatDescribesTheBuild) {
    for (int i = 0; i < 20; ++i)
        build.environment["LONG_" + std::to_string(i)] = std::string(100'000, 'x');
    build.environment["ODD"] = "a\x01\xff\r\n<&>";
    // Started through the loader: the kernel then takes the loader as the program.
    const std::string loader = support::outputOf("ldd /bin/sh | grep -o '/[^ ]*/ld[^ ]*' | tr -d '\\n'");
    support::Launch launch = build.launch({loader});
    launch.environment.insert(launch.environment.end(),
                              {"=nameless", "no value", "SRCROOT=/the first one counts"});
    EXPECT_EQ(printed(launch, 0), versionLine);

    const std::string folder = buildFolders().at(0), path = folder + "/Build.plist";
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
    Value::Dictionary environment(build.environment.begin(), build.environment.end());
    environment["ODD"] = "a\uFFFD\uFFFD\r\n<&>";
    Value::Dictionary expected = {{"TARNWHISTLE_FRAMEWORK_PATH", framework},
                                  {"TARNWHISTLE_API_KEY", build.arguments[0]},
                                  {"TARNWHISTLE_RUN_VERSION", toolBuildVersion()},
                                  {"dSYMs", Value::Array{folder + "/Sample App.app.dSYM"}},
                                  {"CFBundleShortVersionString", "1.2"},
                                  {"CFBundleVersion", "17"},
                                  {"CFBundleDisplayName", "Sample"},
                                  {"CFBundleName", "Sample App"},
                                  {"CFBundleIdentifier", "com.example.sample"},
                                  {"Runner_Environment_Dictionary", environment}};
    for (const char* name : {"PLATFORM_NAME", "PROJECT_FILE_PATH", "CONFIGURATION", "XCODE_VERSION_ACTUAL",
                             "CODE_SIGN_IDENTITY", "SDKROOT", "PROVISIONING_PROFILE"})
        expected[name] = build.environment.at(name);
    EXPECT_EQ(Value(platform::readDictionary(path).value()), Value(expected));
}

TEST_F(CompanionRoad, PassesTheSettingsInTheURLToAnOldCompanion) {
    build.arguments = {"azAZ09-._~ !*'\"();:@&=+$,/?#[]100%25\u00e9<>^"};
    build.environment.erase("CONFIGURATION");
    auto settings = build.environment;
    settings["TARNWHISTLE_FRAMEWORK_PATH"] = framework;
    std::string url = "Opened: tarnwhistle://xcode?";
    for (const char* name : {"BUILT_PRODUCTS_DIR", "PRODUCT_NAME", "WRAPPER_NAME", "DWARF_DSYM_FOLDER_PATH",
                             "DWARF_DSYM_FILE_NAME", "PLATFORM_NAME", "PROJECT_FILE_PATH", "INFOPLIST_PATH",
                             "CONFIGURATION", "SDKROOT", "TARNWHISTLE_FRAMEWORK_PATH"})
        url += std::string(name) + "=" + urlEncode(settings[name]) + "&";
    url +=
        "TARNWHISTLE_API_KEY=azAZ09-._~%20%21%2A%27%22%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%23%5B%5D100%2525"
        "%C3%A9%3C%3E%5E&TARNWHISTLE_RUN_VERSION=" +
        toolBuildVersion();

    for (const char* absent : {"FRAMEWORK_SEARCH_PATHS", "XCODE_VERSION_ACTUAL"})
        build.environment.erase(absent);
    install("new");
    EXPECT_EQ(printed(build, 0), versionLine);
    EXPECT_THAT(reports.next(), StartsWith(url + "\n"));
    build.environment["FRAMEWORK_SEARCH_PATHS"] = R"("/a b" /c)";
    build.environment["XCODE_VERSION_ACTUAL"] = "05/11";
    install("202");
    EXPECT_EQ(printed(build, 0), versionLine);
    url += "&XCODE_VERSION_ACTUAL=05/11&FRAMEWORK_SEARCH_PATHS=%22%2Fa%20b%22%20%2Fc\n";
    EXPECT_THAT(reports.next(), StartsWith(url));
    EXPECT_TRUE(fileExists(buildFolders().front() + "/Sample App.app.dSYM"));
    EXPECT_FALSE(fileExists(buildFolders().front() + "/Build.plist"));
}

TEST_F(CompanionRoad, OpensTheSignUpPageIfNoCompanionOpens) {
    const std::string run = "Exec=\"" ORVANE_COMPANION "\" report.txt %u\nPath=" + desktop + "\n";
    build.folder.write("home/.local/share/applications/browser.desktop",
                       "[Desktop Entry]\nType=Application\n" + run);
    build.folder.write("home/.config/mimeapps.list",
                       "[Default Applications]\nx-scheme-handler/https=browser.desktop\n");
    build.environment["XDG_DATA_DIRS"] = build.folder.path("home/.local/share");
    const std::string program = build.folder.write("program", "#!/nowhere/to/be/found\n");
    std::filesystem::permissions(program, std::filesystem::perms::all);
    install("203", program);
    EXPECT_THAT(printed(build, 1), EndsWith("Linux/Orvane: No such file or directory\n" + signUp));
    EXPECT_THAT(reports.next(), StartsWith("Opened: https://tarnwhistle.example/sign-up\n"));
    install("202");
    build.environment["XCODE_VERSION_ACTUAL"] = "raw in the URL, which then is none";
    EXPECT_EQ(printed(build, 1), versionLine + signUp);
}

TEST_F(CompanionRoad, ReportsWhyTheCacheCannotBeWritten) {
    EXPECT_EQ(mkfifo((build.dSYM + "/pipe").c_str(), 0666), 0);
    const std::string copying = printed(build, 1);
    EXPECT_EQ(copying, versionLine + "Unable to copy dSYM at path " + build.products + " to path " +
                           buildFolders().front() +
                           "/Sample App.app.dSYM Error Domain=NSPOSIXErrorDomain Code=95 \"copy " +
                           build.dSYM + "/pipe: Operation not supported\"\n");
    std::filesystem::remove(build.dSYM + "/pipe");
    build.environment["XDG_CACHE_HOME"] = build.folder.path("link");
    std::filesystem::create_symlink("gone", build.folder.path("link"));
    EXPECT_THAT(printed(build, 1),
                MatchesRegex(versionLine +
                             "ERROR: unable to write directory for object store.\nError Domain=[^\n]*\n"
                             "Unable to create directory at path [^\n]*/builds/[0-9A-F-]{36} \n"
                             "Error Domain=[^\n]* Code=20 [^\n]*\n"));
}

TEST_F(CompanionRoad, UsesACacheFolderForEachEndpoint) {
    build.writeInfoPlist("<key>CFBundleIdentifier</key><string>x</string>"
                         "<key>TarnwhistleAPIEndpoint</key><string>../../..</string>");
    EXPECT_EQ(printed(build, 0), versionLine);
    EXPECT_EQ(buildFolders("../../..").size(), 1u);
    EXPECT_EQ(endpoint({{"BUILT_PRODUCTS_DIR", ""}, {"INFOPLIST_PATH", build.infoPlist}}), "../../..");
}

TEST_F(CompanionRoad, NeverLeavesAPartialBuildPlist) {
    for (const char* name : {"LARGE", "LARGER"})
        build.environment[name] = std::string(100'000, '&');
    install("203", "/bin/true");
    const auto start = steady_clock::now();
    EXPECT_EQ(printed(build, 0), versionLine);
    std::uniform_int_distribution<steady_clock::rep> moments(0, (steady_clock::now() - start).count());
    std::mt19937 random(1);
    for (int i = 0; i < 200; ++i) {
        support::ChildProcess run(build.launch());
        std::this_thread::sleep_for(steady_clock::duration(moments(random)));
        run.kill(SIGKILL);
        run.wait();
    }
    for (const std::string& folder : buildFolders())
        EXPECT_EQ(fileExists(folder + "/Build.plist"),
                  platform::readDictionary(folder + "/Build.plist").has_value());
}

TEST(DebugDefault, IsReadFromThePreferences) {
    SampleBuild build;
    build.folder.write("home/.config/com.tarnwhistle.run.plist",
                       "<plist version=\"1.0\"><dict><key>debug</key><true/></dict></plist>");
    EXPECT_THAT(printed(build, 1), HasSubstr(record("Src root " + build.workingDirectory)));
    build.arguments.insert(build.arguments.end(), {"-debug", "NO"});
    EXPECT_THAT(printed(build, 1), Not(HasSubstr("Src root")));
}

TEST(CacheDSYMs, EndTheRunIfTheFolderCannotBeListed) {
    EXPECT_EXIT(cacheDSYMsAtPath("/gone", "/to"), ExitedWithCode(1),
                "\\] Unable to get contents of path /gone \nError Domain=NSPOSIXErrorDomain");
}

/// The companion road of a tool that ORVANE_TOOL_RUNNER starts. Set ORVANE_RUNNER_HAS_COMPANION if the
/// command takes the folder in ORVANE_TEST_COMPANION as the companion app and appends each URL that the tool
/// opens to the file in ORVANE_TEST_OPENED.
TEST(ToolOfAnotherSystem, HandsTheBuildToTheCompanion) {
    if (toolRunner().empty() || !getenv("ORVANE_RUNNER_HAS_COMPANION"))
        GTEST_SKIP() << "No command provides a companion app.";
    SampleBuild build;
    const std::string opened = build.folder.path("opened");
    build.environment["ORVANE_TEST_COMPANION"] = build.folder.path("Orvane.app");
    build.environment["ORVANE_TEST_OPENED"] = opened;
    build.folder.write("Orvane.app/Contents/Info.plist",
                       "<plist><dict><key>CFBundleVersion</key><string>203</string></dict></plist>");
    EXPECT_EQ(printed(build, 0), versionLine);
    ASSERT_TRUE(platform::fileExists(opened)) << "The command opened no URL.";
    std::filesystem::path plist =
        support::outputOf("find '" + build.folder.path("home") + "' -name Build.plist | tr -d '\\n'");
    EXPECT_THAT(std::string(platform::readFile(opened)->bytes()),
                StartsWith("tarnwhistle://xcode?TARNWHISTLE_BUILD_PLIST_PATH=" + urlEncode(plist.native())));
    const auto description = platform::readDictionary(plist).value();
    const std::string dSYM = plist.replace_filename("Sample App.app.dSYM");
    EXPECT_EQ(description.at("dSYMs"), platform::Value(platform::Value::Array{dSYM}));
    EXPECT_TRUE(platform::fileExists(dSYM));
}

} // namespace
} // namespace orvane
