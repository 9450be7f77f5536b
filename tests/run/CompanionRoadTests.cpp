#include "Categories/MD5.h"
#include "platform/Files.h"
#include "platform/PropertyList.h"
#include "platform/URL.h"
#include "support/ReportPipe.h"
#include "support/SampleBuild.h"

#include <gmock/gmock.h>
#include <signal.h>
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

using platform::Value;
using support::SampleBuild;
using testing::EndsWith;
using testing::HasSubstr;

constexpr const char* versionLine = "Orvane.framework/run 1.3.17\n";
constexpr const char* signUp =
    "\n\nOrvane: This app relies on Orvane. Please sign up for access at https://tarnwhistle.example/sign-up,\n"
    "install Orvane.app then ask a team member to invite you to this app's organization.\n\nIf this machine is a "
    "build server please remove Orvane.app if present and use xcodebuild so that Sample App.app.dSYM is "
    "uploaded.\n\n";

/// A companion app on the desktop of `build`.
class Companion {
public:
    struct Kind {
        std::string version = "203";
        std::string lingerSeconds = "0";
        std::string program = ORVANE_COMPANION;
    };

    explicit Companion(SampleBuild& build) : Companion(build, Kind()) {}
    Companion(SampleBuild& build, const Kind& kind)
        : _folder(build.folder().makeFolder("com panion")), reports(_folder + "/report.txt") {
        const support::Launch launch = {
            .arguments = {ORVANE_REGISTER_COMPANION, _folder, kind.program, kind.version, kind.lingerSeconds},
            .environment = {"PATH=/usr/bin:/bin"},
            .workingDirectory = {},
            .standardErrorPath = {}};
        EXPECT_EQ(run(launch).status, 0);
        build.environment["XDG_DATA_HOME"] = _folder;
    }

    std::string path(std::string_view name) const { return platform::pathByAppending(_folder, name); }

private:
    std::string _folder;

public:
    support::ReportPipe reports;
};

std::string cacheRoot(const SampleBuild& build) {
    return build.folder().path("home/.cache/com.tarnwhistle.mac/" + MD5(std::string(support::nobodyListens)) +
                               "/builds");
}

std::vector<std::string> buildFolders(const SampleBuild& build) {
    std::vector<std::string> folders;
    for (const auto& entry : std::filesystem::directory_iterator(cacheRoot(build)))
        folders.push_back(entry.path());
    return folders;
}

/// The companion's process as its report gives it.
pid_t processIn(const std::string& report) {
    std::smatch match;
    EXPECT_TRUE(std::regex_search(report, match, std::regex("Process (\\d+) in session \\1:"))) << report;
    return match.empty() ? -1 : std::stoi(match[1]);
}

TEST(CompanionRoad, HandsOverABuildPlistThatDescribesTheBuild) {
    SampleBuild build;
    build.folder().write("Build/Products/Release-iphoneos/Ext.appex.dSYM/Contents/x", "");
    build.environment["ODD"] = "a\x01\xff\r\n<&>";
    build.environment["PROVISIONING_PROFILE"] = "profile";
    Companion companion(build);
    const support::Ending ending = run(build.launch());
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(support::messages(ending.standardError), versionLine);

    ASSERT_EQ(buildFolders(build).size(), 1u);
    const std::string folder = buildFolders(build).front();
    EXPECT_THAT(folder, testing::MatchesRegex(".*/builds/[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
    const std::string path = folder + "/Build.plist";
    const std::string report = companion.reports.next();
    EXPECT_THAT(report, HasSubstr("Opened: tarnwhistle://xcode?TARNWHISTLE_BUILD_PLIST_PATH=" +
                                  platform::percentEscape(path) + "\n"));
    EXPECT_THAT(report, EndsWith(": complete\n"));

    Value::Dictionary plist = platform::readDictionary(path).value();
    Value::Dictionary environment;
    for (const auto& [name, value] : build.environment)
        environment[name] = value;
    environment["ODD"] = "a\uFFFD\uFFFD\r\n<&>";
    EXPECT_EQ(*platform::find<Value::Dictionary>(plist, "Runner_Environment_Dictionary"), environment);
    EXPECT_THAT(*platform::find<Value::Array>(plist, "dSYMs"),
                testing::UnorderedElementsAre(Value(folder + "/Sample App.app.dSYM"),
                                              Value(folder + "/Ext.appex.dSYM")));
    plist.erase("Runner_Environment_Dictionary");
    plist.erase("dSYMs");
    const std::string framework = std::filesystem::path(build.launch().arguments.front()).parent_path();
    EXPECT_EQ(Value(plist),
              Value(Value::Dictionary{{"PLATFORM_NAME", "iphoneos"},
                                      {"PROJECT_FILE_PATH", build.environment["PROJECT_FILE_PATH"]},
                                      {"CONFIGURATION", "Release"},
                                      {"XCODE_VERSION_ACTUAL", "0511"},
                                      {"SDKROOT", "/Xcode/iPhoneOS.sdk"},
                                      {"TARNWHISTLE_FRAMEWORK_PATH", framework},
                                      {"TARNWHISTLE_API_KEY", std::string(40, 'k')},
                                      {"TARNWHISTLE_RUN_VERSION", "149"},
                                      {"PROVISIONING_PROFILE", "profile"},
                                      {"CFBundleShortVersionString", "1.2"},
                                      {"CFBundleVersion", "17"},
                                      {"CFBundleDisplayName", "Sample"},
                                      {"CFBundleIdentifier", "com.example.sample"}}));
}

TEST(CompanionRoad, PacksTheSettingsForACompanionThatIsTooOld) {
    SampleBuild build;
    Companion companion(build, {.version = "202"});
    EXPECT_EQ(run(build.launch()).status, 0);
    EXPECT_THAT(companion.reports.next(),
                testing::AllOf(HasSubstr("Legacy form, dSYM: Sample App.app.dSYM\n"),
                               HasSubstr("?BUILT_PRODUCTS_DIR=" +
                                         platform::percentEscape(build.environment["BUILT_PRODUCTS_DIR"]) +
                                         "&PRODUCT_NAME=Sample%20App&WRAPPER_NAME="),
                               HasSubstr("&TARNWHISTLE_RUN_VERSION=149&XCODE_VERSION_ACTUAL=0511\n")));
    EXPECT_TRUE(platform::fileExists(buildFolders(build).front() + "/Sample App.app.dSYM"));
    EXPECT_FALSE(platform::fileExists(buildFolders(build).front() + "/Build.plist"));

    // The version stands in the URL as it is; a URL that cannot be is opened by nobody.
    build.environment["XCODE_VERSION_ACTUAL"] = "5.1 beta";
    const support::Ending ending = run(build.launch());
    EXPECT_EQ(ending.status, 1);
    EXPECT_EQ(support::messages(ending.standardError), std::string(versionLine) + signUp);
}

TEST(CompanionRoad, SendsPeopleWithoutACompanionToTheSignUpPage) {
    SampleBuild build;
    const support::Ending below = run(build.launchBelow({"Xcode"}));
    EXPECT_EQ(below.status, 1);
    EXPECT_EQ(support::messages(below.standardError), std::string(versionLine) + signUp);

    const std::string script = build.folder().write("badly started", "#!/nowhere/to/be/found\n");
    EXPECT_EQ(chmod(script.c_str(), 0755), 0);
    const Companion companion(build, {.program = script});
    const support::Ending ending = run(build.launch());
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(support::messages(ending.standardError), EndsWith(signUp));
}

TEST(CompanionRoad, IsNotTakenBelowXcodeBots) {
    SampleBuild build;
    const Companion companion(build);
    const support::Ending ending = run(build.launchBelow({"Xcode", "xcsbuildd"}));
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(support::messages(ending.standardError), HasSubstr("Could not be onboarded statusCode 0"));
    EXPECT_FALSE(platform::fileExists(build.folder().path("home/.cache")));
}

TEST(CompanionRoad, SaysWhatKeepsItFromFillingTheCache) {
    SampleBuild build;
    const Companion companion(build);
    EXPECT_EQ(mkfifo((build.dSYMPath() + "/pipe").c_str(), 0666), 0);
    const support::Ending copying = run(build.launch());
    EXPECT_EQ(copying.status, 1);
    const std::string destination = buildFolders(build).front() + "/Sample App.app.dSYM";
    EXPECT_EQ(support::messages(copying.standardError),
              std::string(versionLine) + "Unable to copy dSYM at path " +
                  build.environment["BUILT_PRODUCTS_DIR"] + " to path " + destination +
                  " Error Domain=NSPOSIXErrorDomain Code=95 \"copy " + build.dSYMPath() +
                  "/pipe: Operation not supported\"\n");

    build.environment["XDG_CACHE_HOME"] = build.folder().write("file", "");
    const support::Ending making = run(build.launch());
    EXPECT_EQ(making.status, 1);
    EXPECT_THAT(
        support::messages(making.standardError),
        testing::MatchesRegex(std::string(versionLine) +
                              "ERROR: unable to write directory for object store.\nError Domain=[^\n]*\n"
                              "Unable to create directory at path [^\n]*/builds/[0-9A-F-]{36} \n"
                              "Error Domain=[^\n]*\n"));
}

TEST(CompanionRoad, TakesAnyEndpoint) {
    const std::string members =
        "<key>CFBundleIdentifier</key><string>x</string><key>TarnwhistleAPIEndpoint</key>";
    for (const std::string& endpoint :
         {std::string("<string/>"), "<string>" + std::string(1 << 20, 'e') + "</string>",
          std::string("<integer>7</integer>"), std::string("<array><dict/></array>"),
          std::string("<string>../../..</string>")}) {
        SampleBuild build;
        Companion companion(build);
        build.writeInfoPlist(members + endpoint);
        EXPECT_EQ(run(build.launch()).status, 0) << endpoint.substr(0, 50);
        EXPECT_THAT(companion.reports.next(), EndsWith(": complete\n"));
    }
}

TEST(CompanionApp, NeitherHoldsTheLogNorSharesTheRunsSignals) {
    SampleBuild build;
    Companion companion(build, {.lingerSeconds = "30"});
    support::Launch launch = build.launch();
    launch.arguments.insert(launch.arguments.begin(), {"/bin/sh", "-c", "\"$@\" 2>&1 | cat", "sh"});
    support::ChildProcess script(launch);
    const pid_t first = processIn(companion.reports.next());
    const auto opened = std::chrono::steady_clock::now();
    EXPECT_THAT(script.wait().standardOutput, HasSubstr(versionLine));
    EXPECT_LT(std::chrono::steady_clock::now() - opened, std::chrono::seconds(3));
    EXPECT_EQ(getpgid(first), first);
    EXPECT_EQ(kill(first, SIGKILL), 0);

    launch = build.launch();
    launch.arguments.insert(launch.arguments.begin(), {"/bin/sh", "-c", "\"$@\"; sleep 30", "sh"});
    support::ChildProcess interrupted(launch);
    const pid_t second = processIn(companion.reports.next());
    EXPECT_EQ(kill(-interrupted.identifier(), SIGINT), 0);
    EXPECT_EQ(interrupted.wait().status, 128 + SIGINT);
    EXPECT_EQ(getpgid(second), second);
    EXPECT_EQ(kill(second, SIGKILL), 0);
}

TEST(CompanionRoad, KeepsManyRunsApart) {
    constexpr std::size_t runCount = 50;
    SampleBuild build;
    Companion companion(build);
    std::vector<support::ChildProcess> runs;
    for (std::size_t i = 0; i < runCount; ++i)
        runs.emplace_back(build.launch());
    for (support::ChildProcess& run : runs)
        EXPECT_EQ(run.wait().status, 0);
    std::set<std::string> opened;
    for (std::size_t i = 0; i < runCount; ++i) {
        const std::string report = companion.reports.next();
        EXPECT_THAT(report, EndsWith(": complete\n"));
        opened.insert(report.substr(0, report.find('\n')));
    }
    EXPECT_EQ(opened.size(), runCount);
    EXPECT_EQ(buildFolders(build).size(), runCount);
}

TEST(CompanionRoad, NeverLeavesHalfABuildPlist) {
    SampleBuild build;
    for (int i = 0; i < 10; ++i)
        build.environment["LARGE_" + std::to_string(i)] = std::string(100'000, '&');
    const Companion companion(build, {.program = "/bin/true"});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(run(build.launch()).status, 0);
    const auto duration =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);

    std::mt19937 random(149);
    std::uniform_int_distribution<std::int64_t> moments(0, duration.count());
    for (int i = 0; i < 200; ++i) {
        support::ChildProcess run(build.launch());
        std::this_thread::sleep_for(std::chrono::microseconds(moments(random)));
        run.kill(SIGKILL);
        run.wait();
    }
    int whole = 0;
    for (const std::string& folder : buildFolders(build)) {
        const std::string path = folder + "/Build.plist";
        if (!platform::fileExists(path))
            continue;
        const auto plist = platform::readDictionary(path);
        EXPECT_TRUE(plist && platform::find<Value::Dictionary>(*plist, "Runner_Environment_Dictionary"));
        ++whole;
    }
    EXPECT_GE(whole, 1);
}

} // namespace
} // namespace orvane
