#include "fuzz/MachOImage.h"
#include "support/Certificate.h"
#include "support/HTTPServer.h"
#include "support/SampleBuild.h"
#include "support/ScriptedServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <set>

namespace orvane {
namespace {

namespace fs = std::filesystem;
using support::HTTPRequest;
using support::SampleBuild;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr std::uint32_t versionMinIPhoneOS = 0x25;
constexpr std::uint32_t iOS7 = 0x00070000;
constexpr const char* key = "0123456789abcdef0123456789abcdef0123456X";

/// The service: answers each upload and each registration with the next of its statuses, the last one for
/// ever.
class Service {
public:
    Service(std::vector<int> registrations, std::vector<int> uploads,
            const support::HTTPServer::TLS* tls = nullptr)
        : _statuses{std::move(registrations), std::move(uploads)},
          _server(tls ? support::HTTPServer(handler(), *tls) : support::HTTPServer(handler())) {}

    /// Called with each upload before it is answered.
    std::function<void()> duringUpload = [] {
    };

    std::vector<HTTPRequest> requests(bool uploads) const {
        const std::scoped_lock lock(_mutex);
        return _requests[uploads];
    }
    void serve(SampleBuild& build) const {
        std::string address = _server.url();
        address.pop_back();
        build.environment["ORVANE_TEST_API_ENDPOINT"] = address;
        build.environment["ORVANE_TEST_SYMBOLS_ENDPOINT"] = address;
    }

private:
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

std::string image(char uuid, std::uint32_t cputype, std::uint32_t cpusubtype,
                  std::uint32_t minimumVersion = iOS7) {
    return fuzz::MachOImage(cputype, cpusubtype)
        .uuid(uuid)
        .versionMin(versionMinIPhoneOS, minimumVersion, iOS7)
        .bytes();
}

std::string universal(const std::string& armv7, const std::string& arm64) {
    std::string file = fuzz::universalHeader({{0xC, 9, 4096}, {0x0100000C, 0, 8192}});
    file.resize(4096);
    file += armv7;
    file.resize(8192);
    return file + arm64;
}

/// A build whose executable and dSYM are there, with the arguments of a build server.
class DirectRoad : public testing::Test {
protected:
    DirectRoad() {
        build.arguments = {key, std::string(64, 's')};
        writeExecutable(universal(image('\x11', 0xC, 9), image('\x22', 0x0100000C, 0)));
        build.folder().write(
            "Build/Products/Release-iphoneos/Sample App.app.dSYM/Contents/Resources/DWARF/Sample App",
            std::string(100'000, 'd'));
    }

    void writeExecutable(const std::string& bytes) const {
        build.folder().write("Build/Products/Release-iphoneos/Sample App.app/Sample App", bytes);
    }
    std::vector<std::string> archivesLeft() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(build.environment.at("BUILT_PRODUCTS_DIR")))
            if (entry.path().extension() == ".zip")
                names.push_back(entry.path().filename());
        return names;
    }
    /// Puts the tool under test into a folder of its own, beside `archiver`, a shell script.
    void useArchiver(const std::string& archiver) {
        const std::string folder = build.folder().makeFolder("Orvane.framework");
        fs::copy_file(build.tool, folder + "/run");
        build.tool = folder + "/run";
        if (archiver.empty())
            return;
        fs::permissions(build.folder().write("Orvane.framework/ditto", "#!/bin/sh\n" + archiver + "\n"),
                        fs::perms::all);
    }
    std::string go(int expectedStatus) {
        const support::Ending ending = run(build.launch());
        EXPECT_EQ(ending.status, expectedStatus);
        return support::messages(ending.standardError);
    }

    SampleBuild build;
    const std::string summary = "UUID:11111111111111111111111111111111 Slice:armv7\n"
                                "UUID:22222222222222222222222222222222 Slice:arm64\n";
};

TEST_F(DirectRoad, SendsBothCallsToTheLetter) {
    const Service service({201}, {201});
    service.serve(build);
    EXPECT_EQ(go(0), "Orvane.framework/run 1.3.17\n"
                     "\n\nOrvane: Sample App.app.dSYM uploaded statusCode 201\n" +
                         summary + "\n");
    EXPECT_THAT(archivesLeft(), ElementsAre());

    ASSERT_EQ(service.requests(false).size(), 1u);
    const HTTPRequest registration = service.requests(false)[0];
    EXPECT_EQ(registration.method + " " + registration.target,
              "POST /spi/v1/platforms/ios/apps/com.example.sample/built");
    EXPECT_EQ(registration.header("X-Tarnwhistle-Build-Secret"), std::string(64, 's'));
    EXPECT_EQ(
        registration.body,
        "MIME-Version: 1.0\r\n"
        "--AaB03x\r\nContent-Disposition: form-data; name=\"app_name\"\r\nContent-Type: text/plain\r\n\r\nSample\r\n"
        "--AaB03x\r\nContent-Disposition: form-data; name=\"tool_details\"\r\nContent-Type: text/plain\r\n\r\nbuild server\r\n"
        "--AaB03x--\r\n");

    ASSERT_EQ(service.requests(true).size(), 1u);
    const HTTPRequest upload = service.requests(true)[0];
    EXPECT_EQ(upload.method + " " + upload.target, "POST /api/v3/platforms/ios/code_mappings");
    EXPECT_EQ(upload.header("X-Tarnwhistle-Build-Secret"), "");
    for (const HTTPRequest& request : {registration, upload}) {
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
        for (const auto& [name, value] : headers)
            EXPECT_EQ(request.header(name), value) << name;
    }

    const auto parts = support::parseForm(upload.header("Content-Type"), upload.body);
    std::vector<std::pair<std::string, std::string>> fields;
    for (const auto& part : parts)
        fields.emplace_back(part.name, part.filename.empty() ? part.content : part.contentType);
    EXPECT_THAT(
        fields,
        ElementsAre(std::pair("project[identifier]", "com.example.sample"),
                    std::pair("project[display_version]", "17"), std::pair("project[build_version]", "1.2"),
                    std::pair("code_mapping[build_configuration]", "Release"),
                    std::pair("code_mapping[type]", "dsym"), std::pair("com_tarnwhistle_run_version", "149"),
                    std::pair("code_mapping[executables][][identifier]", std::string(32, '1')),
                    std::pair("code_mapping[executables][][arch]", "armv7"),
                    std::pair("code_mapping[executables][][identifier]", std::string(32, '2')),
                    std::pair("code_mapping[executables][][arch]", "arm64"),
                    std::pair("code_mapping[file]", "application/zip")));
    EXPECT_THAT(parts.back().filename, testing::MatchesRegex("[-0-9A-F]+\\.zip"));
    EXPECT_TRUE(parts.back().content.starts_with("PK\x03\x04"));
}

TEST_F(DirectRoad, JudgesEachStatusAndTriesTwice) {
    const std::string uploaded = "\n\nOrvane: Sample App.app.dSYM uploaded statusCode ";
    const std::string refused = "\n\nOrvane: Sample App.app.dSYM could not be uploaded statusCode ";
    const std::string onboarding = "\n\nOrvane: Could not be onboarded statusCode ";
    const struct {
        std::vector<int> registrations, uploads;
        int status;
        std::string messages;
    } cases[] = {
        {{200}, {200}, 0, uploaded + "200\n" + summary + "\n"},
        {{204}, {300}, 0, onboarding + "204\n" + uploaded + "300\n" + summary + "\n"},
        {{500, 201}, {500, 201}, 0, onboarding + "500\n" + uploaded + "201\n" + summary + "\n"},
        {{201}, {301}, 1, refused + "301\n" + summary + "\n"},
        {{201}, {413, 401}, 1, refused + "401\n" + summary + "\n"},
    };
    for (const auto& row : cases) {
        const Service service(row.registrations, row.uploads);
        service.serve(build);
        EXPECT_EQ(go(row.status), "Orvane.framework/run 1.3.17\n" + row.messages);
        EXPECT_EQ(service.requests(false).size(), 1u);
        const auto uploads = service.requests(true);
        EXPECT_EQ(uploads.size(), row.uploads[0] > 300 ? 2u : 1u);
        if (uploads.size() == 2) {
            EXPECT_NE(uploads[0].body, uploads[1].body) << "the second attempt makes a new archive";
        }
        EXPECT_THAT(archivesLeft(), ElementsAre());
    }
}

TEST_F(DirectRoad, ReportsAServiceThatIsDownOrClosesMidUpload) {
    EXPECT_THAT(
        go(1),
        testing::ContainsRegex(
            "could not be uploaded statusCode 0 Error Domain=NSURLErrorDomain Code=-1004 \".*127\\.0\\.0\\.1.*\"\nUUID:1111"));
    support::ScriptedServer closing([](support::ScriptedServer::Peer& peer) {
        peer.readUntil("code_mapping[file]");
        peer.reset();
    });
    std::string address = closing.url();
    address.pop_back();
    build.environment["ORVANE_TEST_SYMBOLS_ENDPOINT"] = address;
    EXPECT_THAT(go(1),
                HasSubstr("could not be uploaded statusCode 0 Error Domain=NSURLErrorDomain Code=-1005 "));
    EXPECT_THAT(archivesLeft(), ElementsAre());
}

TEST_F(DirectRoad, ReportsEachFailureOfTheArchive) {
    const Service service({201}, {201});
    service.serve(build);
    const std::string dSYM = build.dSYMPath();
    const struct {
        const char* archiver;
        int status;
        std::string message;
    } cases[] = {
        {"", 1,
         "\n\nOrvane: ditto tool unavailable at path " + build.folder().path("Orvane.framework/ditto") +
             "\n\n\n"},
        {"exit 3", 1, "\n\nOrvane: Compression of Sample App.app.dSYM failed, unable to upload.\n\n\n"},
        {"kill -9 $$", 1, "\n\nOrvane: Compression of Sample App.app.dSYM failed, unable to upload.\n\n\n"},
        {"exit 0", 1, "\n\nOrvane: Failed to Load File\n\n" + dSYM + " data could not be loaded\n"},
        {"mkdir \"$5\"", 1, "\n\nOrvane: Failed to Load File\n\n" + dSYM + " data could not be loaded\n"},
        {"test \"$1 $2 $3 $4\" = \"-c -k --keepParent $DWARF_DSYM_FOLDER_PATH/$DWARF_DSYM_FILE_NAME\" && echo PK >\"$5\"",
         0, "uploaded statusCode 201"},
    };
    const std::string shippedTool = build.tool;
    for (const auto& row : cases) {
        build.tool = shippedTool;
        fs::remove_all(build.folder().path("Orvane.framework"));
        useArchiver(row.archiver);
        EXPECT_THAT(go(row.status), HasSubstr(row.message)) << row.archiver;
    }
}

TEST_F(DirectRoad, SaysWhenTheArchiveCannotBeDeletedOrWritten) {
    Service service({201}, {201});
    service.serve(build);
    service.duringUpload = [&] {
        for (const std::string& name : archivesLeft())
            fs::remove(build.environment["BUILT_PRODUCTS_DIR"] + "/" + name);
    };
    EXPECT_THAT(
        go(0), testing::ContainsRegex(
                   "Could not delete zipped dSYM at path /.*\\.zip Error Domain=NSPOSIXErrorDomain Code=2 "));
    build.environment["DWARF_DSYM_FOLDER_PATH"] = "/proc";
    build.environment["DWARF_DSYM_FILE_NAME"] = "version";
    EXPECT_THAT(go(1), HasSubstr("\n\nOrvane: Compression of version failed, unable to upload.\n\n\n"));
}

TEST_F(DirectRoad, TakesAnyExecutableAndIdentifier) {
    const Service service({201}, {201});
    service.serve(build);
    const std::string executable = build.environment["BUILT_PRODUCTS_DIR"] + "/Sample App.app/Sample App";
    const std::string noPairs =
        "\n\nOrvane: Unable to extract uuid-architecture pairs from binary " + executable + "\n";
    const std::pair<std::string, std::string> executables[] = {
        {"", ""},
        {"#!/bin/sh is no Mach-O file", noPairs},
        {universal(image('\x11', 0xC, 9), fuzz::MachOImage(0x0100000C, 0).bytes()), noPairs}};
    for (const auto& [bytes, message] : executables) {
        writeExecutable(bytes);
        const std::string text = go(0);
        EXPECT_THAT(text, HasSubstr(message + "\n\nOrvane: Sample App.app.dSYM uploaded statusCode 201\n"));
    }
    fs::remove(executable);
    build.writeInfoPlist(
        "<key>CFBundleIdentifier</key><string>com.b\u00e9 &amp; co</string><key>CFBundleVersion</key><integer>4</integer>");
    const std::string text = go(0);
    EXPECT_THAT(
        text,
        HasSubstr(
            "\n\nOrvane: Could not be onboarded statusCode 0 Error Domain=NSURLErrorDomain Code=-1000 "));
    const HTTPRequest upload = service.requests(true).back();
    EXPECT_EQ(support::parseForm(upload.header("Content-Type"), upload.body)[0].content, "com.b\u00e9 & co");
    EXPECT_THAT(upload.body, Not(HasSubstr("executables")));
}

TEST_F(DirectRoad, StopsABuildForAnOldSystem) {
    writeExecutable(universal(image('\x11', 0xC, 9), image('\x22', 0x0100000C, 0, 0x00040300)));
    EXPECT_EQ(
        go(1),
        "Orvane.framework/run 1.3.17\n\n\nOrvane: Unsupported iOS Version\n\nWe have detected that this build of "
        "Sample App uses an unsupported OS Deployment Target. Orvane is only compatible with iOS 5.0 and greater. To "
        "use Orvane, you'll have to adjust your project's iOS Deployment Target.\n\n\n");
    build.environment.erase("TARGETED_DEVICE_FAMILY");
    EXPECT_EQ(
        go(1),
        "Orvane.framework/run 1.3.17\n\n\nOrvane: Unsupported OS X Version\n\nWe have detected that this build of "
        "Sample App uses an unsupported OS Deployment Target. Orvane is only compatible with OS X 10.7 and greater. "
        "To use Orvane, you'll have to adjust your project's Mac OS X Deployment Target.\n\n\n");
}

TEST_F(DirectRoad, WorksOverHTTPS) {
    support::HTTPServer::TLS tls;
    tls.certificate = support::makeCertificate();
    const Service service({201}, {201}, &tls);
    service.serve(build);
    EXPECT_THAT(go(1), HasSubstr("Code=-1202 "));
    build.environment["SSL_CERT_FILE"] = build.folder().write("ca.pem", tls.certificate.certificate);
    go(0);
    EXPECT_EQ(service.requests(true).size(), 1u);
}

TEST_F(DirectRoad, ManyRunsAtOnceOnOneProductAllSucceed) {
    const Service service({201}, {201});
    service.serve(build);
    std::vector<support::ChildProcess> runs;
    for (int i = 0; i < 20; ++i)
        runs.emplace_back(build.launch());
    for (auto& run : runs)
        EXPECT_EQ(run.wait().status, 0);
    std::set<std::string> names;
    for (const HTTPRequest& upload : service.requests(true))
        names.insert(support::parseForm(upload.header("Content-Type"), upload.body).back().filename);
    EXPECT_EQ(names.size(), 20u);
    EXPECT_THAT(archivesLeft(), ElementsAre());
}

} // namespace
} // namespace orvane
