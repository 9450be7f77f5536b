#include "platform/Files.h"
#include "support/SampleBuild.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

namespace orvane {
namespace {

using support::SampleBuild;
using testing::HasSubstr;
using testing::Not;

constexpr const char* usage = "Your Orvane run script build phase should contain your API key:\n"
                              "./Orvane.framework/run YOUR_API_KEY YOUR_BUILD_SECRET\n\n\n";
constexpr const char* signUp = "\n\nOrvane: This app relies on Orvane. Please sign up for access at ";
constexpr const char* registration = "\n\nOrvane: Could not be onboarded statusCode 0";

std::string messagesOf(const SampleBuild& build) {
    return support::messages(run(build.launch()).standardError);
}

TEST(Arguments, WithoutAKeyOfFortyCharactersEndTheRun) {
    const std::string notValid =
        std::string(
            "Orvane.framework/run 1.3.17\n\n\nOrvane: Configuration Issue\n\nOrvnae API key not valid. ") +
        usage;
    const std::string notSet =
        std::string(
            "Orvane.framework/run 1.3.17\n\n\nOrvane: Configuration Issue\n\nOrvane API key not set. ") +
        usage;
    std::string multibyte; // 40 bytes, 20 characters
    for (int i = 0; i < 20; ++i)
        multibyte += "\u00e9";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, notSet},
        {{""}, notValid},
        {{std::string(39, 'k')}, notValid},
        {{std::string(41, 'k')}, notValid},
        {{multibyte}, notValid},
        {{std::string(39, 'k') + "\xFF"}, notValid},
    };
    for (const auto& [arguments, expected] : cases) {
        SampleBuild build;
        build.arguments = arguments;
        const support::Ending ending = run(build.launch());
        EXPECT_EQ(ending.status, 1);
        EXPECT_EQ(support::messages(ending.standardError), expected);
    }
    SampleBuild build;
    build.arguments = {multibyte + multibyte};
    EXPECT_THAT(messagesOf(build), HasSubstr(registration));
}

TEST(DebugDefault, ComesFromTheArgumentsOrThePreferences) {
    const std::string preferences = "<plist version=\"1.0\"><dict><key>debug</key><true/></dict></plist>";
    const std::string debugLine = "\n\nOrvane: Run script build phase called from Xcode Bots 0\n";
    SampleBuild build;
    EXPECT_THAT(messagesOf(build), Not(HasSubstr(debugLine)));
    build.folder().write("home/.config/com.tarnwhistle.run.plist", preferences);
    EXPECT_THAT(messagesOf(build), HasSubstr(debugLine));
    build.arguments.insert(build.arguments.end(), {"-debug", "NO"});
    EXPECT_THAT(messagesOf(build), Not(HasSubstr(debugLine)));
    build.arguments.back() = "YES";
    const std::string all = messagesOf(build);
    EXPECT_THAT(all, HasSubstr("\n\nOrvane: Src root " + build.workingDirectory +
                               "\n\n\nOrvane: Current directory path " + build.workingDirectory + "\n"));
    EXPECT_THAT(all, HasSubstr(debugLine));
}

TEST(Artifact, IsWrittenWhenAskedForWhateverTheRoad) {
    SampleBuild build;
    build.arguments = {"<&>" + std::string(37, '\'')};
    const std::string defaultPath = build.environment["BUILT_PRODUCTS_DIR"] + "/tarnwhistle.plist";
    build.environment["TARNWHISTLE_CREATE_ARTIFACT"] = "NO";
    messagesOf(build);
    EXPECT_FALSE(std::filesystem::exists(defaultPath));
    build.environment["TARNWHISTLE_CREATE_ARTIFACT"] = "1";
    messagesOf(build);
    EXPECT_THAT(std::string(platform::readFile(defaultPath)->bytes()),
                HasSubstr("<key>TarnwhistleAPIKey</key>\n\t<string>&lt;&amp;&gt;''"));

    for (const char* path : {"", "/dev/null", "missing/folder/x", "/"}) {
        build.environment["TARNWHISTLE_ARTIFACT_PATH"] = path;
        EXPECT_THAT(messagesOf(build), HasSubstr("\n\nOrvane: Failed to write data to artifact path " +
                                                 std::string(path) + "\n\n\n"));
    }
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    build.environment["TARNWHISTLE_ARTIFACT_PATH"] = "relative.plist";
    messagesOf(build);
    EXPECT_TRUE(std::filesystem::exists(build.workingDirectory + "/relative.plist"));
}

TEST(Road, IsChosenByTheProcessesAboveTheRun) {
    const std::tuple<std::vector<std::string>, const char*, bool> cases[] = {
        {{}, "Xcode Bots 0\n\n\nOrvane: Run script build phase called from Xcode.app 0\n", false},
        {{"Xcode"}, "Xcode Bots 0\n\n\nOrvane: Run script build phase called from Xcode.app 1\n", true},
        {{"Xcode-beta"}, "Xcode.app 0\n", false},
        {{"Xcode", "a (b) c\n)"}, "Xcode.app 1\n", true},
        {{"xcsbuildd"}, "Xcode Bots 1\n", false},
        {{"Xcode", "xcsbuildd"}, "Xcode Bots 1\n", false},
    };
    for (const auto& [parents, debugLine, takesCompanionRoad] : cases) {
        SampleBuild build;
        build.arguments.insert(build.arguments.end(), {"-debug", "YES"});
        const support::Ending ending = run(build.launchBelow(parents));
        const std::string text = support::messages(ending.standardError);
        EXPECT_EQ(ending.status, 1);
        EXPECT_THAT(text, HasSubstr(debugLine));
        EXPECT_THAT(text, HasSubstr(takesCompanionRoad ? signUp : registration));
        EXPECT_THAT(text, Not(HasSubstr(takesCompanionRoad ? registration : signUp)));
    }
}

TEST(Environment, OfAnyBytesAndSizeIsTaken) {
    SampleBuild build;
    for (int i = 0; i < 20; ++i)
        build.environment["LONG_" + std::to_string(i)] = std::string(100'000, 'x');
    build.environment["NOT_\xFF_UTF8"] = "\xFE";
    support::Launch launch = build.launch();
    launch.environment.insert(launch.environment.end(),
                              {"=nameless", "no value", "SRCROOT=/the first one counts"});
    EXPECT_THAT(support::messages(run(launch).standardError), HasSubstr(registration));
}

TEST(Console, KeepsEveryRecordOfManyRunsWhole) {
    SampleBuild build;
    build.environment.erase("INFOPLIST_PATH");
    support::Launch launch = build.launch();
    launch.standardErrorPath = build.folder().path("log");
    std::vector<support::ChildProcess> runs;
    for (int i = 0; i < 200; ++i)
        runs.emplace_back(launch);
    for (auto& run : runs)
        EXPECT_EQ(run.wait().status, 1);

    std::string log = support::messages(std::string(platform::readFile(launch.standardErrorPath)->bytes()));
    for (const std::string record :
         {"Orvane.framework/run 1.3.17\n", "\n\nOrvane: Failed to Detect Build Environment\n\n"
                                           "INFOPLIST_PATH value not found in environment\n"}) {
        int count = 0;
        for (std::size_t at; (at = log.find(record)) != std::string::npos; ++count)
            log.erase(at, record.size());
        EXPECT_EQ(count, 200);
    }
    EXPECT_EQ(log, "");
}

TEST(Console, OutlivesAClosedOrFullStandardError) {
    for (const char* redirection : {"2>&-", "2>/dev/full", ">&- 2>&- <&-"}) {
        const SampleBuild build;
        support::Launch launch = build.launch();
        launch.arguments.insert(launch.arguments.begin(),
                                {"/bin/sh", "-c", std::string("\"$@\" ") + redirection, "sh"});
        EXPECT_EQ(run(launch).status, 1) << redirection;
    }
    const SampleBuild build;
    support::Launch launch = build.launch();
    launch.arguments.insert(launch.arguments.begin(),
                            {"/bin/bash", "-c", "\"$@\" 2>&1 | exit 0; echo ${PIPESTATUS[0]}", "sh"});
    EXPECT_EQ(run(launch).standardOutput, "1\n");
}

} // namespace
} // namespace orvane
