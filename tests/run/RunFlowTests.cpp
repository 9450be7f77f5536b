#include "SampleBuild.h"
#include "platform/files/Files.h"
#include "platform/foundation/Format.h"
#include "platform/process/ProcessTable.h"
#include "platform/propertylist/PropertyList.h"
#include "run/Console.h"
#include "run/FrameworkProbes.h"
#include "run/HostDetection.h"
#include "support/JoiningThread.h"

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

namespace orvane {
namespace {

namespace fs = std::filesystem;
using namespace testing;

TEST(Arguments, RequireAKeyOfFortyCharacters) {
    SampleBuild build;
    const std::vector<std::string> invalid[] = {
        {}, {std::string(41, 'k')}, {"\u00e9" + std::string(38, 'k')}, {std::string(39, 'k') + "\xFF"}};
    for (const auto& arguments : invalid) {
        build.arguments = arguments;
        const char* const reason =
            arguments.empty() ? "Orvane API key not set." : "Orvnae API key not valid.";
        const std::string message = platform::format(
            "Configuration Issue\n\n%@ Your Orvane run script build phase should contain your API key:\n"
            "./Orvane.framework/run YOUR_API_KEY YOUR_BUILD_SECRET\n\n",
            reason);
        EXPECT_EQ(printed(build, 1), versionLine + record(message));
    }
    build.arguments = {"\u00e9" + std::string(39, 'k')};
    EXPECT_THAT(printed(build, 1), HasSubstr(unanswered));
}

TEST(FailedCheck, NamesTheSettingOrFileThatIsMissing) {
    const SampleBuild build;
    const auto missing = [](const std::string& key) {
        return "Failed to Detect Build Environment\n\n" + key + " value not found in environment";
    };
    const std::string wrongFolder =
        "Use a Target Run Script Build Phase\n\nMake sure the Orvane command is added to your project Target and "
        "not the scheme 'Post-actions'.\n\nThen, Build your project to continue.\n\n(Tarnwhistle error 602)";
    const struct {
        const char* changes; // arguments of env(1)
        std::string expected;
    } cases[] = {
        {"BUILT_PRODUCTS_DIR=", missing("BUILT_PRODUCTS_DIR")},
        {"-u INFOPLIST_PATH -u DWARF_DSYM_FILE_NAME", missing("INFOPLIST_PATH")},
        {"-u DWARF_DSYM_FILE_NAME -u DWARF_DSYM_FOLDER_PATH", missing("DWARF_DSYM_FILE_NAME")},
        {"DWARF_DSYM_FOLDER_PATH= INFOPLIST_PATH=none", missing("DWARF_DSYM_FOLDER_PATH")},
        {"-u WRAPPER_NAME INFOPLIST_PATH=No.app/Info.plist DWARF_DSYM_FILE_NAME=none",
         "Info.plist Error\n\nUnable to process Info.plist at path " + build.products +
             "/No.app/Info.plist\nThis could be a timing issue, make sure the Orvane run script build phase is the "
             "last build phase and no other scripts have moved (null) from the location Xcode generated it."},
        {"DWARF_DSYM_FILE_NAME=No.dSYM SRCROOT=/",
         "dSYM Error\n\nUnable to process No.dSYM at path " + build.products +
             "/No.dSYM\nMake sure your project build settings are generating a dSYM file. "
             "DEBUG_INFORMATION_FORMAT should be set to dwarf-with-dsym for all configurations. This could also be "
             "a timing issue, make sure the Orvane run script build phase is the last build phase and no other "
             "scripts have moved the dSYM from the location Xcode generated it.\n\n"},
        {"-u SRCROOT", wrongFolder},
        {"SRCROOT=\"$PWD/\"", wrongFolder},
    };
    for (const auto& [changes, expected] : cases) {
        const std::string command = std::string("exec env ") + changes + " \"$@\"";
        EXPECT_EQ(printed(build.launch({"/bin/sh", "-c", command, "sh"}), 1), versionLine + record(expected))
            << changes;
    }
}

TEST(FailedCheck, RequiresABundleIdentifier) {
    const SampleBuild build;
    const std::string required =
        record("Required Info.plist Value Not Found\n\nA CFBundleIdentifier value in your "
               "Info.plist is required. Please confirm this value is present in " +
               build.infoPlist + " \n\n");
    for (const char* members : {"", "<key>CFBundleIdentifier</key><string/>",
                                "<key>CFBundleIdentifier</key><integer>7</integer>", "no property list"}) {
        build.writeInfoPlist(members);
        EXPECT_EQ(printed(build.launch({"/usr/bin/env", "DWARF_DSYM_FILE_NAME=none"}), 1),
                  versionLine + required);
    }
    fs::remove(build.infoPlist);
    fs::create_directory(build.infoPlist);
    EXPECT_EQ(printed(build, 1), versionLine +
                                     record("Error Domain=NSPOSIXErrorDomain Code=21 \"read " +
                                            build.infoPlist + ": Is a directory\"") +
                                     required);
}

TEST(DebugDefault, IsReadFromTheArguments) {
    SampleBuild build;
    const std::string folder = build.workingDirectory, link = build.folder.path("link");
    fs::create_symlink(folder, link);
    build.environment["SRCROOT"] = link;
    const std::string lines = record("Src root " + link) + record("Current directory path " + folder) +
                              record("Current directory path resolved " + folder) +
                              record("Src root resolved " + folder);
    EXPECT_THAT(printed(build, 1), StartsWith(versionLine + unanswered));
    build.arguments.insert(build.arguments.end(), {"-v", "-debug", "NO"});
    EXPECT_THAT(printed(build, 1), StartsWith(versionLine + unanswered));
    build.arguments.back() = "YES";
    EXPECT_THAT(printed(build, 1), StartsWith(versionLine + lines));
}

TEST(Artifact, IsWrittenOnBothRoads) {
    SampleBuild build;
    build.arguments = {"<&>" + std::string(37, '\'')};
    const std::string defaultPath = build.products + "/tarnwhistle.plist";
    build.environment["TARNWHISTLE_CREATE_ARTIFACT"] = "NO";
    printed(build, 1);
    EXPECT_FALSE(fs::exists(defaultPath));
    build.environment["TARNWHISTLE_CREATE_ARTIFACT"] = "1";
    printed(build.launchBelow({"Xcode"}), 1);
    EXPECT_EQ(platform::readDictionary(defaultPath).value(),
              (platform::Value::Dictionary{{"TarnwhistleAPIKey", build.arguments[0]}}));

    fs::permissions(defaultPath, fs::perms(0620));
    printed(build, 1);
    EXPECT_EQ(fs::status(defaultPath).permissions(), fs::perms(0620));

    std::string& path = build.environment["TARNWHISTLE_ARTIFACT_PATH"];
    for (const char* bad : {"", "/dev/null", "missing/folder/x", "/"}) {
        path = bad;
        const std::string message = std::string("Failed to write data to artifact path ") + bad + "\n\n";
        EXPECT_THAT(printed(build, 1), HasSubstr(record(message) + unanswered));
    }
}

TEST(Console, DoesNotMixRecordsOfThreadsAndProcesses) {
    const support::TemporaryFolder folder;
    const std::string path = folder.path("log"), texts[] = {"short", std::string(12'000, 'x')};
    const auto logAll = [&] {
        for (int i = 0; i < 50; ++i)
            TWLLog("%@", texts[i % 2]);
    };
    std::FILE* const stream = popen(("cat >" + path).c_str(), "w");
    std::vector<pid_t> processes(4);
    for (pid_t& process : processes)
        if (process = fork(); process == 0) {
            dup2(fileno(stream), STDERR_FILENO);
            { const support::JoiningThread first(logAll), second(logAll), third(logAll); }
            _exit(0);
        }
    for (const pid_t process : processes)
        waitpid(process, nullptr, 0);
    pclose(stream);
    const std::string log(platform::readFile(path)->bytes());
    for (const std::string& text : texts) {
        int count = 0;
        for (std::size_t at = 0; (at = log.find("] " + record(text), at)) != std::string::npos; ++at)
            ++count;
        EXPECT_EQ(count, 4 * 3 * 25) << text.substr(0, 5);
    }
}

TEST(Console, IgnoresAClosedOrFullStandardError) {
    for (const char* redirected :
         {"\"$@\" 2>&-; echo $?", "\"$@\" 2>/dev/full; echo $?", "\"$@\" >&- 2>&- <&-; echo $?",
          "\"$@\" 2>&1 | exit 0; echo ${PIPESTATUS[0]}"}) {
        const SampleBuild build;
        const auto ending = run(build.launch({"/bin/bash", "-c", redirected, "sh"}));
        EXPECT_EQ(ending.standardOutput, "1\n") << redirected;
    }
}

TEST(HostDetection, WalksToTheFirstProcessAndRepeatsFailedLookUps) {
    const std::map<std::uint32_t, platform::ProcessRecord> table = {
        {70, {70, 1, "run"}}, {1, {1, 0, "launchd"}}, {9, {9, 8, "run"}}};
    int failures = 3;
    const ProcessLookup lookup = [&](std::uint32_t identifier) -> std::optional<platform::ProcessRecord> {
        if (identifier == 1 && failures-- > 0)
            return std::nullopt;
        return table.contains(identifier) ? table.at(identifier) : platform::ProcessRecord();
    };
    EXPECT_TRUE(isProcessNameInHierarchy("launchd", 70, lookup));
    EXPECT_FALSE(isProcessNameInHierarchy("Launchd", 70, lookup));
    EXPECT_FALSE(isProcessNameInHierarchy("launchd", 9, lookup)) << "a parent that has gone ends the walk";
    EXPECT_EQ(platform::processRecord(platform::ownProcessIdentifier())->commandName, "run_tests");
    for (const std::uint32_t identifier : {0u, 4'194'305u, 4'294'967'295u})
        EXPECT_EQ(platform::processRecord(identifier).value().identifier, 0u);
}

TEST(SearchPaths, AreSplitAtBlanksAfterRemovingQuotes) {
    EXPECT_THAT(searchPathsToArray("\"/a b\"  /c\" "), ElementsAre("/a", "b", "", "/c", ""));
}

} // namespace
} // namespace orvane
