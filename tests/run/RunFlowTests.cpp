#include "Printed.h"
#include "platform/Files.h"
#include "platform/ProcessTable.h"
#include "platform/PropertyList.h"
#include "run/FrameworkProbes.h"
#include "run/HostDetection.h"

#include <filesystem>
#include <fstream>
#include <optional>

namespace orvane {
namespace {

namespace fs = std::filesystem;
using support::SampleBuild;
using testing::HasSubstr;
using testing::StartsWith;

TEST(Arguments, WithoutAKeyOfFortyCharactersEndTheRun) {
    SampleBuild build;
    const std::vector<std::string> wrong[] = {{},
                                              {""},
                                              {std::string(39, 'k')},
                                              {std::string(41, 'k')},
                                              {"\u00e9" + std::string(38, 'k')},
                                              {std::string(39, 'k') + "\xFF"}};
    for (const auto& arguments : wrong) {
        build.arguments = arguments;
        EXPECT_EQ(printed(build, 1),
                  versionLine +
                      record(std::string("Configuration Issue\n\n") +
                             (arguments.empty() ? "Orvane API key not set." : "Orvnae API key not valid.") +
                             " Your Orvane run script build phase should contain your API key:\n"
                             "./Orvane.framework/run YOUR_API_KEY YOUR_BUILD_SECRET\n\n"));
    }
    build.arguments = {"\u00e9" + std::string(39, 'k')};
    EXPECT_THAT(printed(build, 1), HasSubstr(unanswered));
}

TEST(FailedCheck, EndsTheRunWithItsTitleAndReason) {
    const SampleBuild build;
    const auto missing = [](const std::string& key) {
        return "Failed to Detect Build Environment\n\n" + key + " value not found in environment";
    };
    const std::string wrongFolder =
        "Use a Target Run Script Build Phase\n\nMake sure the Orvane command is added to your project Target and "
        "not the scheme 'Post-actions'.\n\nThen, Build your project to continue.\n\n(Tarnwhistle error 602)";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"BUILT_PRODUCTS_DIR="}, missing("BUILT_PRODUCTS_DIR")},
        {{"-u", "INFOPLIST_PATH", "-u", "DWARF_DSYM_FILE_NAME"}, missing("INFOPLIST_PATH")},
        {{"-u", "DWARF_DSYM_FILE_NAME", "-u", "DWARF_DSYM_FOLDER_PATH"}, missing("DWARF_DSYM_FILE_NAME")},
        {{"DWARF_DSYM_FOLDER_PATH=", "INFOPLIST_PATH=none"}, missing("DWARF_DSYM_FOLDER_PATH")},
        {{"-u", "WRAPPER_NAME", "INFOPLIST_PATH=No.app/Info.plist", "DWARF_DSYM_FILE_NAME=none"},
         "Info.plist Error\n\nUnable to process Info.plist at path " + build.products +
             "/No.app/Info.plist\nThis could be a timing issue, make sure the Orvane run script build phase is the "
             "last build phase and no other scripts have moved (null) from the location Xcode generated it."},
        {{"DWARF_DSYM_FILE_NAME=No.dSYM", "SRCROOT=/"},
         "dSYM Error\n\nUnable to process No.dSYM at path " + build.products +
             "/No.dSYM\nMake sure your project build settings are generating a dSYM file. "
             "DEBUG_INFORMATION_FORMAT should be set to dwarf-with-dsym for all configurations. This could also be "
             "a timing issue, make sure the Orvane run script build phase is the last build phase and no other "
             "scripts have moved the dSYM from the location Xcode generated it.\n\n"},
        {{"-u", "SRCROOT"}, wrongFolder},
        {{"SRCROOT=" + build.workingDirectory + "/"}, wrongFolder},
        {{"SRCROOT=" + build.folder.path()}, wrongFolder},
    };
    for (const auto& [changes, expected] : cases) {
        std::vector<std::string> starter = {"/usr/bin/env"};
        starter.insert(starter.end(), changes.begin(), changes.end());
        EXPECT_EQ(printed(build.launch(starter), 1), versionLine + record(expected));
    }

    const std::string key = "<key>CFBundleIdentifier</key>";
    for (const std::string& members :
         {std::string(), key + "<string/>", key + "<integer>7</integer>", std::string("no property list")}) {
        build.writeInfoPlist(members);
        EXPECT_EQ(printed(build.launch({"/usr/bin/env", "DWARF_DSYM_FILE_NAME=none"}), 1),
                  versionLine +
                      record("Required Info.plist Value Not Found\n\nA CFBundleIdentifier value in your "
                             "Info.plist is required. Please confirm this value is present in " +
                             build.infoPlist + " \n\n"));
    }
}

TEST(DebugDefault, ComesFromTheArgumentsOrThePreferences) {
    SampleBuild build;
    const std::string folder = build.workingDirectory, link = build.folder.path("link");
    fs::create_symlink(folder, link);
    build.environment["SRCROOT"] = link;
    const std::string lines = record("Src root " + link) + record("Current directory path " + folder) +
                              record("Current directory path resolved " + folder) +
                              record("Src root resolved " + folder);
    EXPECT_THAT(printed(build, 1), StartsWith(versionLine + unanswered));
    build.folder.write("home/.config/com.tarnwhistle.run.plist",
                       "<plist version=\"1.0\"><dict><key>debug</key><true/></dict></plist>");
    EXPECT_THAT(printed(build, 1), StartsWith(versionLine + lines));
    build.arguments.insert(build.arguments.end(), {"-debug", "NO"});
    EXPECT_THAT(printed(build, 1), StartsWith(versionLine + unanswered));
    build.arguments.back() = "YES";
    EXPECT_THAT(printed(build, 1), StartsWith(versionLine + lines));
}

TEST(Artifact, IsWrittenWhenAskedForWhateverTheRoad) {
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
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    path = "relative.plist";
    printed(build, 1);
    EXPECT_TRUE(fs::exists(build.workingDirectory + "/relative.plist"));
}

TEST(Console, KeepsEveryRecordOfManyRunsWhole) {
    constexpr int runCount = 200;
    SampleBuild build;
    build.environment.erase("INFOPLIST_PATH");
    const support::Launch launch = build.launch({"/bin/sh", "-c", "exec \"$@\" 2>>log", "sh"});
    for (const auto& ending : support::runTogether(std::vector(runCount, launch)))
        EXPECT_EQ(ending.status, 1);

    const auto bytes = platform::readFile(build.workingDirectory + "/log");
    std::string log = messages(std::string(bytes->bytes()));
    for (const std::string& whole :
         {versionLine,
          record("Failed to Detect Build Environment\n\nINFOPLIST_PATH value not found in environment")})
        for (int i = 0; i < runCount; ++i) {
            ASSERT_THAT(log, HasSubstr(whole));
            log.erase(log.find(whole), whole.size());
        }
    EXPECT_EQ(log, "");
}

TEST(Console, OutlivesAClosedOrFullStandardError) {
    for (const char* redirected :
         {"\"$@\" 2>&-; echo $?", "\"$@\" 2>/dev/full; echo $?", "\"$@\" >&- 2>&- <&-; echo $?",
          "\"$@\" 2>&1 | exit 0; echo ${PIPESTATUS[0]}"}) {
        const SampleBuild build;
        const auto ending = run(build.launch({"/bin/bash", "-c", redirected, "sh"}));
        EXPECT_EQ(ending.standardOutput, "1\n") << redirected;
    }
}

TEST(HostDetection, WalksToTheFirstProcessAndAsksAgainWhileTheTableFails) {
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
    for (const std::uint32_t identifier : {0u, 4'194'305u, 4'294'967'295u})
        EXPECT_EQ(platform::processRecord(identifier).value().identifier, 0u);
}

TEST(SearchPaths, AreSplitAtEachBlankWithoutQuotes) {
    EXPECT_THAT(searchPathsToArray("\"/a b\"  /c\" "), testing::ElementsAre("/a", "b", "", "/c", ""));
}

} // namespace
} // namespace orvane
