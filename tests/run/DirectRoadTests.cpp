#include "SampleBuild.h"
#include "platform/files/Files.h"
#include "run/BuildRegistration.h"
#include "run/DeploymentTarget.h"
#include "run/SymbolUpload.h"
#include "support/EnvironmentVariable.h"
#include "support/HTTPServer.h"
#include "support/MachOImage.h"
#include "support/ScriptedServer.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <list>
#include <mutex>
#include <random>
#include <regex>
#include <set>
#include <thread>

namespace orvane {
namespace {

namespace fs = std::filesystem;
using support::HTTPRequest;
using namespace testing;

constexpr const char* key = "0123456789abcdef0123456789abcdef0123456X";

/// The form up to the archive, without carriage returns, with "name = value" for each text and "#" as the
/// file's name.
std::string formOf(const HTTPRequest& request) {
    std::string form = request.body.substr(0, request.body.find("PK\x03\x04"));
    std::erase(form, '\r');
    const std::regex head(
        "--AaB03x\nContent-Disposition: form-data; name=\"(.*)\"\nContent-Type: text/plain\n\n");
    return std::regex_replace(std::regex_replace(form, head, "$1 = "), std::regex("[-0-9A-F]+\\.zip"),
                              "#.zip");
}

/// The service for `build`. It answers each request with the next status; the last status repeats.
class Service {
public:
    Service(SampleBuild& build, std::vector<int> statuses)
        : _statuses(std::move(statuses)),
          _server([this](const HTTPRequest& request) { return answer(request); }) {
        build.environment["ORVANE_TEST_API_ENDPOINT"] = build.environment["ORVANE_TEST_SYMBOLS_ENDPOINT"] =
            _server.url("");
    }

    std::vector<HTTPRequest> requests() const {
        const std::scoped_lock lock(_mutex);
        return _requests;
    }
    /// The names of the received archives.
    std::set<std::string> archives() const {
        std::set<std::string> names;
        for (const HTTPRequest& request : requests())
            if (request.target.ends_with("/code_mappings"))
                names.insert(request.body.substr(request.body.find("filename="), 50));
        return names;
    }

private:
    support::HTTPAnswer answer(const HTTPRequest& request) {
        const std::scoped_lock lock(_mutex);
        _requests.push_back(request);
        support::HTTPAnswer answer;
        answer.status = _statuses[std::min(_requests.size(), _statuses.size()) - 1];
        // A successful answer exceeds the tool's size limit. The run must not fail, because only the status
        // is used.
        answer.body = std::string(answer.status < 400 ? 0 : 2 << 20, ' ');
        return answer;
    }

    mutable std::mutex _mutex;
    const std::vector<int> _statuses;
    std::vector<HTTPRequest> _requests;
    support::HTTPServer _server;
};

/// An image with this minimum version of iOS.
support::MachOImage image(std::uint32_t cputype, std::uint32_t cpusubtype, std::uint32_t minimumVersion) {
    constexpr std::uint32_t versionMinIPhoneOS = 0x25;
    return support::MachOImage(cputype, cpusubtype)
        .versionMin(versionMinIPhoneOS, minimumVersion, 0x00080000);
}
const support::MachOImage armv7 = image(0xC, 9, 0x00070000).uuid('\x11');
const support::MachOImage arm64 = image(0x0100000C, 0, 0x00070000).uuid('\x22');

/// A build with its executable and dSYM, and the arguments of a build server.
class DirectRoad : public testing::Test {
protected:
    DirectRoad() {
        build.arguments = {key, std::string(64, 's')};
        build.writeProduct("Sample App.app/Sample App", support::universalFile({armv7, arm64}));
        build.writeProduct("Sample App.app.dSYM/Contents/Resources/DWARF/Sample App",
                           platform::readFile("/bin/sh")->bytes());
    }

    std::vector<std::string> archivesLeft() const {
        std::vector<std::string> paths;
        for (const auto& entry : fs::recursive_directory_iterator(fs::path(build.products).parent_path()))
            if (entry.path().extension() == ".zip")
                paths.push_back(entry.path());
        return paths;
    }

    /// Uses a copy of the tool with this shell script as its archiver.
    void replaceArchiver(const std::string& script) {
        const std::string archiver =
            build.folder.write("Orvane.framework/ditto", "#!/bin/sh\n" + script + "\n");
        fs::permissions(archiver, fs::perms::all);
        const std::string copy = build.folder.path("Orvane.framework/run");
        if (build.tool != copy)
            fs::copy_file(build.tool, copy);
        build.tool = copy;
    }

    SampleBuild build;
    const std::string executable = build.products + "/Sample App.app/Sample App";
    const std::string summary = "UUID:11111111111111111111111111111111 Slice:armv7\n"
                                "UUID:22222222222222222222222222222222 Slice:arm64\n";
};

TEST_F(DirectRoad, SendsBothRequests) {
    const Service service(build, {201});
    build.environment["CONFIGURATION"] = "\xff\u00e9";
    EXPECT_EQ(printed(build, 0),
              versionLine + record("Sample App.app.dSYM uploaded statusCode 201\n" + summary));
    ASSERT_EQ(service.requests().size(), 2u);
    const HTTPRequest registration = service.requests()[0], upload = service.requests()[1];
    EXPECT_EQ(registration.method + registration.target,
              "POST/spi/v1/platforms/ios/apps/com.example.sample/built");
    EXPECT_EQ(upload.method + upload.target, "POST/api/v3/platforms/ios/code_mappings");
    EXPECT_EQ(registration.get_header_value("X-Tarnwhistle-Build-Secret"), std::string(64, 's'));
    EXPECT_EQ(upload.get_header_value("X-Tarnwhistle-Build-Secret"), "");
    const std::map<const char*, std::string> headers = {
        {"X-Tarnwhistle-API-Key", key},
        {"X-Tarnwhistle-Developer-Token", "a4c123b1612dd272d1371c17149d439536b3216f"},
        {"X-Tarnwhistle-API-Client-Id", "com.tarnwhistle.run"},
        {"User-Agent", "run/" + toolVersion()},
        {"X-Tarnwhistle-API-Client-Build-Version", toolBuildVersion()},
        {"X-Tarnwhistle-API-Client-Display-Version", toolVersion()},
        {"Content-Type", "multipart/form-data; boundary=AaB03x"},
    };
    for (const HTTPRequest& request : {registration, upload})
        for (const auto& [name, value] : headers)
            EXPECT_EQ(request.get_header_value(name), value) << name;
    EXPECT_EQ(formOf(registration), R"(MIME-Version: 1.0
app_name = Sample
tool_details = build server
--AaB03x--
)");
    EXPECT_EQ(formOf(upload), R"(MIME-Version: 1.0
project[identifier] = com.example.sample
project[display_version] = 17
project[build_version] = 1.2
code_mapping[build_configuration] = �é
code_mapping[type] = dsym
)"
                              "com_tarnwhistle_run_version = " +
                                  toolBuildVersion() + R"(
code_mapping[executables][][identifier] = 11111111111111111111111111111111
code_mapping[executables][][arch] = armv7
code_mapping[executables][][identifier] = 22222222222222222222222222222222
code_mapping[executables][][arch] = arm64
--AaB03x
Content-Disposition: form-data; name="code_mapping[file]"; filename="#.zip"
Content-Type: application/zip
Content-Transfer-Encoding: binary

)");
}

TEST_F(DirectRoad, DoesNotReportTheResultOfARepeatedRegistration) {
    const Service service(build, {500, 201});
    const support::EnvironmentVariable endpoint("ORVANE_TEST_API_ENDPOINT",
                                                build.environment["ORVANE_TEST_API_ENDPOINT"]);
    const BuildSettings settings(build.environment.begin(), build.environment.end());
    EXPECT_FALSE(buildConfigure(settings, {.apiKey = key, .buildSecret = ""}, /*isBuildServer=*/false,
                                /*isFinalAttempt=*/false));
    ASSERT_EQ(service.requests().size(), 2u);
    EXPECT_THAT(service.requests()[1].body, Not(HasSubstr("build server")));
}

TEST_F(DirectRoad, HandlesEachSecretAndStatusAndTriesTwice) {
    const std::string onboarding = "\n\nOrvane: Could not be onboarded statusCode ";
    const std::string uploaded = "\n\nOrvane: Sample App.app.dSYM uploaded statusCode ";
    const std::string refused = "\n\nOrvane: Sample App.app.dSYM could not be uploaded statusCode ";
    const struct {
        std::size_t secretSize;
        std::vector<int> answers;
        int status;
        std::string messages;
    } cases[] = {
        {64, {200, 200}, 0, uploaded + "200\n"},
        {63, {204, 300}, 0, onboarding + "204\n" + uploaded + "300\n"},
        {65, {500, 301, 201}, 0, onboarding + "500\n" + uploaded + "201\n"},
        {64, {201, 500, 401}, 1, refused + "401\n"},
    };
    for (const auto& [secretSize, answers, status, messages] : cases) {
        const Service service(build, answers);
        build.arguments[1] = std::string(secretSize, 's');
        EXPECT_EQ(printed(build, status), versionLine + messages + summary);
        EXPECT_EQ(service.requests()[0].has_header("X-Tarnwhistle-Build-Secret"), secretSize == 64);
        EXPECT_EQ(service.requests().size(), answers.size());
        EXPECT_EQ(service.archives().size(), answers.size() - 1) << "each attempt makes a new archive";
        EXPECT_TRUE(archivesLeft().empty());
    }
}

TEST_F(DirectRoad, ReportsAServiceThatIsDownOrClosesItsConnections) {
    const std::string failure = "could not be uploaded statusCode 0 Error Domain=NSURLErrorDomain Code=";
    EXPECT_THAT(printed(build, 1), ContainsRegex(failure + "-1004 \".*127\\.0\\.0\\.1.*\"\nUUID:1111"));
    const support::ScriptedServer closing(
        [](support::ScriptedServer::Peer& peer) { peer.readUntil("code_mapping[file]"); });
    build.environment["ORVANE_TEST_SYMBOLS_ENDPOINT"] = closing.url("");
    EXPECT_THAT(printed(build, 1), HasSubstr(failure + "-1005 "));
    EXPECT_TRUE(archivesLeft().empty());
}

TEST_F(DirectRoad, ReportsAnArchiveThatIsGone) {
    const support::HTTPServer server([&](const HTTPRequest&) {
        for (const std::string& path : archivesLeft())
            fs::remove(path);
        return support::HTTPAnswer{201};
    });
    build.environment["ORVANE_TEST_SYMBOLS_ENDPOINT"] = server.url("");
    build.arguments.insert(build.arguments.end(), {"-debug", "YES"});
    EXPECT_THAT(printed(build, 0),
                ContainsRegex("\n\nOrvane: Uploading dSYM at path " + build.dSYM +
                              "\n\n\nOrvane: Could not delete zipped dSYM at path " + build.products +
                              "/.*\\.zip Error Domain=NSPOSIXErrorDomain Code=2 "));
}

TEST_F(DirectRoad, ReportsEachFailureOfItsArchiver) {
    if (!fs::exists(fs::path(build.tool).replace_filename("ditto")))
        GTEST_SKIP() << "The archiver is the system's.";
    const Service service(build, {201});
    replaceArchiver("");
    const std::string archiver = build.folder.path("Orvane.framework/ditto");
    fs::permissions(archiver, fs::perms::none);
    EXPECT_THAT(printed(build, 1), HasSubstr(record("The run cannot go on: Cannot launch " + archiver +
                                                    ": Permission denied\n\n")));
    fs::remove(archiver);
    EXPECT_THAT(printed(build, 1), HasSubstr(record("ditto tool unavailable at path " + archiver + "\n\n")));
    const std::string failed = record("Compression of Sample App.app.dSYM failed, unable to upload.\n\n");
    const std::string noData = record("Failed to Load File\n\n" + build.dSYM + " data could not be loaded");
    const struct {
        const char* script;
        int status;
        std::string message;
    } cases[] = {
        {"echo no space >&2; exit 3", 1, record(archiver + " ended with status 3\nno space\n") + failed},
        {"exit 0", 1, noData},
        {"test \"$*\" = \"-c -k --keepParent $DWARF_DSYM_FOLDER_PATH/$DWARF_DSYM_FILE_NAME $5\" && echo PK >\"$5\"",
         0, "uploaded statusCode 201"},
    };
    for (const auto& [script, status, message] : cases) {
        replaceArchiver(script);
        EXPECT_THAT(printed(build, status), HasSubstr(message)) << script;
    }
}

TEST_F(DirectRoad, ReportsAnArchiveThatIsTruncatedDuringTheUpload) {
    // Larger than the buffers of a connection, and incompressible.
    std::string content(std::size_t{32} << 20, '\0');
    std::generate(content.begin(), content.end(), std::minstd_rand());
    build.writeProduct("Sample App.app.dSYM/Contents/Resources/DWARF/Sample App", content);
    const support::ScriptedServer server([&](support::ScriptedServer::Peer& peer) {
        peer.readUntil("code_mapping[file]");
        for (const std::string& path : archivesLeft())
            fs::resize_file(path, 0);
        while (recv(peer.socket.get(), content.data(), content.size(), 0) > 0) {
        }
    });
    build.environment["ORVANE_TEST_SYMBOLS_ENDPOINT"] = server.url("");
    EXPECT_THAT(printed(build, 1), HasSubstr("Another program truncated a file while it was being read."));
}

TEST_F(DirectRoad, LeavesNothingBehindIfASignalEndsIt) {
    const auto productCount = [&] {
        return platform::namesInDirectory(build.products)->size();
    };
    const std::size_t countBefore = productCount();
    std::atomic<bool> isSending = false;
    const support::ScriptedServer server([&](support::ScriptedServer::Peer& peer) {
        isSending = !peer.readUntil("code_mapping[file]").empty();
        peer.readUntil("what no run sends");
    });
    build.environment["ORVANE_TEST_SYMBOLS_ENDPOINT"] = server.url("");
    const auto end = [&](bool whileSending, int signal) {
        isSending = false;
        // An archiver does not finish a file of 1 TiB during the test.
        fs::resize_file(build.dSYM + "/Contents/Resources/DWARF/Sample App",
                        whileSending ? 10'000 : std::uintmax_t{1} << 40);
        support::ChildProcess run(build.launch());
        const pid_t group = run.identifier();
        for (int waits = 0; whileSending ? !isSending : productCount() == countBefore; ++waits) {
            ASSERT_LT(waits, 6000);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        run.kill(signal);
        const support::Ending ending = run.wait();
        EXPECT_EQ(ending.status, 128 + signal) << "while sending: " << whileSending;
        EXPECT_EQ(ending.standardError.find("Compression"), std::string::npos);
        EXPECT_EQ(productCount(), countBefore);
        EXPECT_EQ(kill(-group, 0), -1) << "the archiver still runs";
    };
    for (const int signal : {SIGHUP, SIGINT, SIGTERM})
        for (const bool whileSending : {true, false})
            end(whileSending, signal);
    replaceArchiver("trap '' HUP INT TERM; echo PK >\"$5\"; exec sleep 60");
    end(/*whileSending=*/false, SIGTERM);
}

TEST_F(DirectRoad, IgnoresASignalThatItsStarterIgnores) {
    const Service service(build, {201});
    replaceArchiver("kill -HUP $PPID; echo PK >\"$5\"");
    printed(build.launch({"/bin/sh", "-c", "trap '' HUP; exec \"$@\"", "sh"}), 0);
}

TEST_F(DirectRoad, AcceptsAnyExecutableAndIdentifier) {
    const Service service(build, {201});
    const std::string noPairs = record("Unable to extract uuid-architecture pairs from binary " + executable);
    const support::MachOImage withoutUUID = image(0x0100000C, 0, 0x00070000);
    const std::map<std::string, std::string> messages = {
        {"", ""},
        {"#!/bin/sh is no Mach-O file", noPairs},
        {support::universalFile({armv7, withoutUUID}), noPairs},
    };
    for (const auto& [bytes, message] : messages) {
        std::ofstream(executable) << bytes;
        EXPECT_THAT(printed(build, 0),
                    HasSubstr(message + "\n\nOrvane: Sample App.app.dSYM uploaded statusCode 201\n"));
    }
    fs::remove(executable);
    build.writeInfoPlist("<key>CFBundleIdentifier</key><string>com.b\u00e9 &amp; co</string>");
    EXPECT_THAT(printed(build, 0), HasSubstr(unanswered + "Error Domain=NSURLErrorDomain Code=-1000 "));
    const HTTPRequest upload = service.requests().back();
    EXPECT_THAT(upload.body, HasSubstr("\r\n\r\ncom.b\u00e9 & co\r\n"));
    EXPECT_THAT(upload.body, Not(HasSubstr("executables")));
}

TEST_F(DirectRoad, StopsABuildWithAnOldDeploymentTarget) {
    std::ofstream(executable) << support::universalFile({armv7, image(0x0100000C, 0, 0x00040300)});
    const std::string detected =
        "\n\nWe have detected that this build of Sample App uses an unsupported OS Deployment "
        "Target. Orvane is only compatible with ";
    const std::string adjust = " and greater. To use Orvane, you'll have to adjust your project's ";
    EXPECT_EQ(printed(build, 1), versionLine + record("Unsupported iOS Version" + detected + "iOS 5.0" +
                                                      adjust + "iOS Deployment Target.\n\n"));
    build.environment["TARNWHISTLE_CREATE_ARTIFACT"] = "YES";
    build.environment.erase("TARGETED_DEVICE_FAMILY");
    EXPECT_EQ(printed(build, 1), versionLine + record("Unsupported OS X Version" + detected + "OS X 10.7" +
                                                      adjust + "Mac OS X Deployment Target.\n\n"));
    EXPECT_FALSE(fs::exists(build.products + "/tarnwhistle.plist"));
}

TEST_F(DirectRoad, ConcurrentRunsOnOneProductSucceed) {
    const Service service(build, {201});
    const std::vector<support::Launch> launches(20, build.launch());
    std::list<support::ChildProcess> runs(launches.begin(), launches.end());
    for (support::ChildProcess& run : runs)
        EXPECT_EQ(run.wait().status, 0);
    EXPECT_EQ(service.archives().size(), launches.size());
    EXPECT_TRUE(archivesLeft().empty());
}

TEST_F(DirectRoad, AcceptsEachKindOfXcodeBuild) {
    support::outputOf(ORVANE_SAMPLE "/make-app '" + build.folder.path() + "'");
    for (const std::string kind : {"device", "simulator", "archive"}) {
        build.setKind(kind);
        const Service service(build, {201});
        EXPECT_THAT(printed(build, 0), EndsWith(" Slice:arm64\n")) << kind;
    }
}

TEST(DeploymentTarget, IsTheSettingIfTheExecutableRecordsNoVersionOfIOS) {
    const auto isUnsupported = [](const macho::TWLMachOVersion& version, const char* setting) {
        return iOSDeploymentTargetIsUnsupported(version, {{"IPHONEOS_DEPLOYMENT_TARGET", setting}});
    };
    EXPECT_TRUE(isUnsupported({4, 3, 0}, "9.0"));
    EXPECT_FALSE(isUnsupported({5, 0, 0}, "4.3"));
    EXPECT_FALSE(isUnsupported({0xFFFFFFFF, 0, 0}, ""));
    EXPECT_TRUE(isUnsupported({0, 9, 9}, "4.3")) << "major 0 is no version";
    EXPECT_FALSE(isUnsupported({0, 0, 0}, " +5.0"));
    EXPECT_TRUE(isUnsupported({0, 0, 0}, ""));
}

TEST(DeploymentTarget, ComparesMajorAndMinorOfOSXSeparately) {
    using Version = macho::TWLMachOVersion;
    for (const auto& old : {Version{10, 6, 8}, {9, 9, 0}, {11, 0, 0}})
        EXPECT_TRUE(OSXDeploymentTargetIsUnsupported(old)) << old.major << '.' << old.minor;
    for (const auto& supported : {Version{10, 7, 0}, {11, 7, 0}})
        EXPECT_FALSE(OSXDeploymentTargetIsUnsupported(supported)) << supported.major;
}

TEST(Platform, IsComparedIgnoringCase) {
    const std::map<const char*, const char*> words = {
        {"MacOSX", "mac"}, {"iphoneos", "ios"}, {"IPHONESIMULATOR", "ios"}, {"iphoneos1", "unknown"}};
    for (const auto& [name, word] : words)
        EXPECT_EQ(getAppPlatform({{"PLATFORM_NAME", name}}), word) << name;
    EXPECT_EXIT(getAppPlatform({{"PLATFORM_NAME", ""}}), ExitedWithCode(1),
                "Orvane: Failure determining project platform\\.\n");
}

} // namespace
} // namespace orvane
