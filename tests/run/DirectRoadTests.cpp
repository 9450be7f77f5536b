#include "Printed.h"
#include "fuzz/MachOImage.h"
#include "run/DeploymentTarget.h"
#include "run/ServiceCalls.h"
#include "support/HTTPServer.h"
#include "support/ScriptedServer.h"

#include <filesystem>
#include <memory>
#include <mutex>
#include <set>

namespace orvane {
namespace {

namespace fs = std::filesystem;
using support::HTTPRequest;
using support::SampleBuild;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

constexpr const char* key = "0123456789abcdef0123456789abcdef0123456X";

/// The service that `build` calls: answers each registration and each upload with the next of its statuses,
/// the last one for ever.
class Service {
public:
    Service(SampleBuild& build, std::vector<int> registrations, std::vector<int> uploads,
            const support::HTTPServer::TLS* tls = nullptr)
        : _statuses{std::move(registrations), std::move(uploads)},
          _server(tls ? support::HTTPServer(handler(), *tls) : support::HTTPServer(handler())) {
        build.environment["ORVANE_TEST_API_ENDPOINT"] = build.environment["ORVANE_TEST_SYMBOLS_ENDPOINT"] =
            _server.url("");
    }

    /// Called with each upload before it is answered.
    std::function<void()> duringUpload = [] {
    };

    const std::string& certificate() const { return _server.certificate(); }
    std::vector<HTTPRequest> registrations() const { return requests(0); }
    std::vector<HTTPRequest> uploads() const { return requests(1); }

private:
    std::vector<HTTPRequest> requests(int kind) const {
        const std::scoped_lock lock(_mutex);
        return _requests[kind];
    }
    support::HTTPServer::Handler handler() {
        return [this](const HTTPRequest& request) {
            const std::scoped_lock lock(_mutex);
            const bool isUpload = request.target.ends_with("/code_mappings");
            if (isUpload)
                duringUpload();
            _requests[isUpload].push_back(request);
            const std::vector<int>& statuses = _statuses[isUpload];
            support::HTTPAnswer answer;
            answer.status = statuses[std::min(_requests[isUpload].size(), statuses.size()) - 1];
            return answer;
        };
    }

    mutable std::mutex _mutex;
    const std::vector<int> _statuses[2];
    std::vector<HTTPRequest> _requests[2];
    support::HTTPServer _server;
};

std::vector<support::FormPart> partsOf(const HTTPRequest& request) {
    return support::parseForm(request.header("Content-Type"), request.body);
}

/// A build whose executable and dSYM are there, with the arguments of a build server.
class DirectRoad : public testing::Test {
protected:
    DirectRoad() {
        build.arguments = {key, std::string(64, 's')};
        writeExecutable(universal(slice(0x0100000C, 0, 0x00070000).uuid('\x22').bytes()));
        write("Sample App.app.dSYM/Contents/Resources/DWARF/Sample App", std::string(100'000, 'd'));
    }

    void write(const std::string& name, const std::string& bytes) const {
        build.folder().write("Build/Products/Release-iphoneos/" + name, bytes);
    }
    void writeExecutable(const std::string& bytes) const { write("Sample App.app/Sample App", bytes); }
    static fuzz::MachOImage slice(std::uint32_t cputype, std::uint32_t cpusubtype,
                                  std::uint32_t minimumVersion) {
        constexpr std::uint32_t versionMinIPhoneOS = 0x25;
        return fuzz::MachOImage(cputype, cpusubtype)
            .versionMin(versionMinIPhoneOS, minimumVersion, 0x00080000);
    }
    /// A universal file of an armv7 slice and the given arm64 one.
    static std::string universal(const std::string& arm64) {
        std::string file = fuzz::universalHeader({{0xC, 9, 4096}, {0x0100000C, 0, 8192}});
        file.resize(4096);
        file += slice(0xC, 9, 0x00070000).uuid('\x11').bytes();
        file.resize(8192);
        return file + arm64;
    }
    std::vector<std::string> archivesLeft() const {
        std::vector<std::string> paths;
        for (const auto& entry : fs::directory_iterator(build.environment.at("BUILT_PRODUCTS_DIR")))
            if (entry.path().extension() == ".zip")
                paths.push_back(entry.path());
        return paths;
    }

    SampleBuild build;
    const std::string summary = "UUID:11111111111111111111111111111111 Slice:armv7\n"
                                "UUID:22222222222222222222222222222222 Slice:arm64\n";
};

TEST_F(DirectRoad, SendsBothCallsToTheLetter) {
    const Service service(build, {201}, {201});
    EXPECT_EQ(printed(build, 0),
              versionLine + record("Sample App.app.dSYM uploaded statusCode 201\n" + summary));
    EXPECT_TRUE(archivesLeft().empty());

    ASSERT_EQ(service.registrations().size(), 1u);
    ASSERT_EQ(service.uploads().size(), 1u);
    const HTTPRequest registration = service.registrations()[0], upload = service.uploads()[0];
    EXPECT_EQ(registration.method + registration.target,
              "POST/spi/v1/platforms/ios/apps/com.example.sample/built");
    EXPECT_EQ(upload.method + upload.target, "POST/api/v3/platforms/ios/code_mappings");
    EXPECT_EQ(registration.header("X-Tarnwhistle-Build-Secret"), std::string(64, 's'));
    EXPECT_EQ(upload.header("X-Tarnwhistle-Build-Secret"), "");
    const std::pair<const char*, const char*> headers[] = {
        {"X-Tarnwhistle-API-Key", key},
        {"X-Tarnwhistle-Developer-Token", "a4c123b1612dd272d1371c17149d439536b3216f"},
        {"X-Tarnwhistle-API-Client-Id", "com.tarnwhistle.run"},
        {"User-Agent", "run/1.3.17"},
        {"X-Tarnwhistle-API-Client-Build-Version", "149"},
        {"X-Tarnwhistle-API-Client-Display-Version", "1.3.17"},
        {"Content-Type", "multipart/form-data; boundary=AaB03x"},
        {"Accept", "application/json, application/x-plist"},
        {"Expect", ""}};
    for (const HTTPRequest& request : {registration, upload})
        for (const auto& [name, value] : headers)
            EXPECT_EQ(request.header(name), value) << name;
    EXPECT_EQ(registration.body,
              "MIME-Version: 1.0\r\n--AaB03x\r\nContent-Disposition: form-data; name=\"app_name\"\r\n"
              "Content-Type: text/plain\r\n\r\nSample\r\n--AaB03x\r\nContent-Disposition: "
              "form-data; name=\"tool_details\"\r\nContent-Type: text/plain\r\n\r\nbuild server\r\n"
              "--AaB03x--\r\n");
    std::string fields;
    for (const auto& part : partsOf(upload))
        fields += part.name + " = " + (part.filename.empty() ? part.content : part.contentType) + "\n";
    EXPECT_EQ(fields, R"(project[identifier] = com.example.sample
project[display_version] = 17
project[build_version] = 1.2
code_mapping[build_configuration] = Release
code_mapping[type] = dsym
com_tarnwhistle_run_version = 149
code_mapping[executables][][identifier] = 11111111111111111111111111111111
code_mapping[executables][][arch] = armv7
code_mapping[executables][][identifier] = 22222222222222222222222222222222
code_mapping[executables][][arch] = arm64
code_mapping[file] = application/zip
)");
    EXPECT_THAT(partsOf(upload).back().filename, testing::MatchesRegex("[-0-9A-F]+\\.zip"));
    EXPECT_TRUE(partsOf(upload).back().content.starts_with("PK\x03\x04"));
}

TEST_F(DirectRoad, JudgesEachStatusAndTriesTwice) {
    const auto uploaded = [&](const std::string& status) {
        return record("Sample App.app.dSYM uploaded statusCode " + status + "\n" + summary);
    };
    const auto refused = [&](const std::string& status) {
        return record("Sample App.app.dSYM could not be uploaded statusCode " + status + "\n" + summary);
    };
    const std::string onboarding = "Could not be onboarded statusCode ";
    const std::tuple<std::vector<int>, std::vector<int>, int, std::string> cases[] = {
        {{200}, {200}, 0, uploaded("200")},
        {{204}, {300}, 0, record(onboarding + "204") + uploaded("300")},
        {{500, 201}, {500, 201}, 0, record(onboarding + "500") + uploaded("201")},
        {{201}, {301}, 1, refused("301")},
        {{201}, {413, 401}, 1, refused("401")},
    };
    for (const auto& [registrations, uploads, status, messages] : cases) {
        const Service service(build, registrations, uploads);
        EXPECT_EQ(printed(build, status), versionLine + messages);
        EXPECT_EQ(service.registrations().size(), 1u);
        const auto attempts = service.uploads();
        EXPECT_EQ(attempts.size(), uploads[0] > 300 ? 2u : 1u);
        if (attempts.size() == 2) {
            EXPECT_NE(attempts[0].body, attempts[1].body) << "the second attempt makes a new archive";
        }
        EXPECT_TRUE(archivesLeft().empty());
    }
}

TEST_F(DirectRoad, ReportsAServiceThatIsDownOrClosesMidUpload) {
    const std::string failure = "could not be uploaded statusCode 0 Error Domain=NSURLErrorDomain Code=";
    EXPECT_THAT(printed(build, 1), ContainsRegex(failure + "-1004 \".*127\\.0\\.0\\.1.*\"\nUUID:1111"));
    support::ScriptedServer closing([](support::ScriptedServer::Peer& peer) {
        peer.readUntil("code_mapping[file]");
        peer.reset();
    });
    build.environment["ORVANE_TEST_SYMBOLS_ENDPOINT"] = closing.url("");
    EXPECT_THAT(printed(build, 1), HasSubstr(failure + "-1005 "));
    EXPECT_TRUE(archivesLeft().empty());
}

TEST_F(DirectRoad, ReportsEachFailureOfTheArchive) {
    const Service service(build, {201}, {201});
    const std::string framework = build.folder().makeFolder("Orvane.framework");
    fs::copy_file(build.tool, framework + "/run");
    build.tool = framework + "/run";
    EXPECT_THAT(printed(build, 1),
                HasSubstr(record("ditto tool unavailable at path " + framework + "/ditto\n\n")));

    const std::string archiver = build.folder().write("Orvane.framework/ditto", "");
    EXPECT_EQ(printed(build, 1), versionLine + record("The run cannot go on: Cannot launch " + archiver +
                                                      ": Permission denied\n\n"));
    fs::permissions(archiver, fs::perms::all);
    const std::string failed = record("Compression of Sample App.app.dSYM failed, unable to upload.\n\n");
    const std::string noData =
        record("Failed to Load File\n\n" + build.dSYMPath() + " data could not be loaded");
    const std::tuple<const char*, int, std::string> cases[] = {
        {"exit 3", 1, failed},
        {"kill -9 $$", 1, failed},
        {"exit 0", 1, noData},
        {"mkdir \"$5\"", 1, noData},
        {"test \"$*\" = \"-c -k --keepParent $DWARF_DSYM_FOLDER_PATH/$DWARF_DSYM_FILE_NAME $5\" && echo PK >\"$5\"",
         0, "uploaded statusCode 201"},
    };
    for (const auto& [script, status, message] : cases) {
        build.folder().write("Orvane.framework/ditto", std::string("#!/bin/sh\n") + script + "\n");
        EXPECT_THAT(printed(build, status), HasSubstr(message)) << script;
    }
}

TEST_F(DirectRoad, SaysWhenTheArchiveCannotBeDeletedOrWritten) {
    Service service(build, {201}, {201});
    service.duringUpload = [&] {
        for (const std::string& path : archivesLeft())
            fs::remove(path);
    };
    EXPECT_THAT(printed(build, 0), ContainsRegex("Orvane: Could not delete zipped dSYM at path /.*\\.zip "
                                                 "Error Domain=NSPOSIXErrorDomain Code=2 "));
    build.environment["DWARF_DSYM_FOLDER_PATH"] = "/proc";
    build.environment["DWARF_DSYM_FILE_NAME"] = "version";
    EXPECT_THAT(printed(build, 1), HasSubstr(record("Compression of version failed, unable to upload.\n\n")));
}

TEST_F(DirectRoad, TakesAnyExecutableAndIdentifier) {
    const Service service(build, {201}, {201});
    const std::string executable = build.environment["BUILT_PRODUCTS_DIR"] + "/Sample App.app/Sample App";
    const std::string noPairs = record("Unable to extract uuid-architecture pairs from binary " + executable);
    const std::pair<std::string, std::string> executables[] = {
        {"", ""},
        {"#!/bin/sh is no Mach-O file", noPairs},
        {universal(slice(0x0100000C, 0, 0x00070000).bytes()), noPairs}};
    for (const auto& [bytes, message] : executables) {
        writeExecutable(bytes);
        EXPECT_THAT(printed(build, 0),
                    HasSubstr(message + "\n\nOrvane: Sample App.app.dSYM uploaded statusCode 201\n"));
    }
    fs::remove(executable);
    build.writeInfoPlist("<key>CFBundleIdentifier</key><string>com.b\u00e9 &amp; co</string>");
    EXPECT_THAT(printed(build, 0),
                HasSubstr(unanswered + std::string("Error Domain=NSURLErrorDomain Code=-1000 ")));
    const HTTPRequest upload = service.uploads().back();
    EXPECT_EQ(partsOf(upload)[0].content, "com.b\u00e9 & co");
    EXPECT_THAT(upload.body, Not(HasSubstr("executables")));
}

TEST_F(DirectRoad, StopsABuildForAnOldSystem) {
    writeExecutable(universal(slice(0x0100000C, 0, 0x00040300).bytes()));
    const auto message = [](const std::string& title, const std::string& oldest, const std::string& target) {
        return versionLine +
               record(title +
                      "\n\nWe have detected that this build of Sample App uses an unsupported OS "
                      "Deployment Target. Orvane is only compatible with " +
                      oldest + " and greater. To use Orvane, you'll have to adjust your project's " + target +
                      " Deployment Target.\n\n");
    };
    EXPECT_EQ(printed(build, 1), message("Unsupported iOS Version", "iOS 5.0", "iOS"));
    build.environment.erase("TARGETED_DEVICE_FAMILY");
    EXPECT_EQ(printed(build, 1), message("Unsupported OS X Version", "OS X 10.7", "Mac OS X"));
}

TEST_F(DirectRoad, WorksOverHTTPS) {
    const support::HTTPServer::TLS tls;
    const Service service(build, {201}, {201}, &tls);
    EXPECT_THAT(printed(build, 1), HasSubstr("Code=-1202 "));
    build.environment["SSL_CERT_FILE"] = build.folder().write("ca.pem", service.certificate());
    printed(build, 0);
    EXPECT_EQ(service.uploads().size(), 1u);
}

TEST_F(DirectRoad, ManyRunsAtOnceOnOneProductAllSucceed) {
    const Service service(build, {201}, {201});
    std::vector<support::ChildProcess> runs;
    runs.reserve(20);
    for (int i = 0; i < 20; ++i)
        runs.emplace_back(build.launch());
    for (auto& run : runs)
        EXPECT_EQ(run.wait().status, 0);
    std::set<std::string> names;
    for (const HTTPRequest& upload : service.uploads())
        names.insert(partsOf(upload).back().filename);
    EXPECT_EQ(names.size(), 20u);
    EXPECT_TRUE(archivesLeft().empty());
}

TEST_F(DirectRoad, TakesEachKindOfXcodeBuild) {
    const std::string folder = build.folder().makeFolder("app folder");
    support::outputOf(ORVANE_SAMPLE "/make-app '" + folder + "'");
    build.workingDirectory = folder + "/Sample Project";
    for (const char* kind : {"device", "simulator", "archive", "pod"}) {
        build.environment = xcodeEnvironment(folder, kind);
        const Service service(build, {201}, {201});
        const std::string text = printed(build, kind == std::string("pod") ? 1 : 0);
        if (service.uploads().empty())
            EXPECT_EQ(text, versionLine +
                                record("Failed to Detect Build Environment\n\nINFOPLIST_PATH value not found "
                                       "in environment"))
                << kind;
        else
            EXPECT_THAT(text, HasSubstr(" Slice:arm64\n")) << kind;
    }
}

TEST(DeploymentTarget, KnowsWhatTheServiceSupports) {
    const std::tuple<macho::TWLMachOVersion, const char*, bool, bool> cases[] = {
        {{4, 3, 0}, "9.0", true, true},        {{5, 0, 0}, "4.3", false, true},
        {{0xFFFFFFFF, 0, 0}, "", false, true}, {{0, 9, 9}, "", true, true},
        {{0, 0, 0}, "4.3", true, true},        {{0, 0, 0}, "5.0", false, true},
        {{0, 0, 0}, " +6", false, true},       {{0, 0, 0}, "-7", true, true},
        {{0, 0, 0}, "x9", true, true},         {{10, 6, 8}, "", false, true},
        {{10, 7, 0}, "", false, false},        {{10, 9, 0}, "", false, false},
        {{9, 9, 0}, "", false, true},          {{11, 0, 0}, "", false, true},
        {{11, 7, 0}, "", false, false}};
    for (const auto& [version, target, iOS, OSX] : cases) {
        EXPECT_EQ(iOSDeploymentTargetIsUnsupported(version, {{"IPHONEOS_DEPLOYMENT_TARGET", target}}), iOS)
            << version.major << ' ' << target;
        EXPECT_EQ(OSXDeploymentTargetIsUnsupported(version), OSX) << version.major << '.' << version.minor;
    }
    EXPECT_TRUE(iOSDeploymentTargetIsUnsupported({}, {}));
}

TEST(Platform, IsComparedWholeAndWithoutCase) {
    const std::pair<const char*, const char*> names[] = {{"MacOSX", "mac"},
                                                         {"iphoneos", "ios"},
                                                         {"IPHONESIMULATOR", "ios"},
                                                         {"iphoneos1", "unknown"},
                                                         {"watchos", "unknown"}};
    for (const auto& [name, word] : names)
        EXPECT_EQ(getAppPlatform({{"PLATFORM_NAME", name}}), word) << name;
    EXPECT_EXIT(getAppPlatform({{"PLATFORM_NAME", ""}}), testing::ExitedWithCode(1),
                "Orvane: Failure determining project platform\\.\n");
}

} // namespace
} // namespace orvane
