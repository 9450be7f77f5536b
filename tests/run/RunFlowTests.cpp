#include "Printed.h"
#include "platform/Files.h"
#include "platform/ProcessTable.h"
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
using testing::Not;

std::string repeated(std::string_view text, int count) {
    std::string result;
    for (; count > 0; --count)
        result += text;
    return result;
}

TEST(Arguments, WithoutAKeyOfFortyCharactersEndTheRun) {
    const std::string usage = " Your Orvane run script build phase should contain your API key:\n"
                              "./Orvane.framework/run YOUR_API_KEY YOUR_BUILD_SECRET\n\n";
    SampleBuild build;
    build.arguments = {};
    EXPECT_EQ(printed(build, 1),
              versionLine + record("Configuration Issue\n\nOrvane API key not set." + usage));
    const std::string valid = repeated("\u00e9", 40);
    for (const std::string& key : {std::string(), std::string(39, 'k'), std::string(41, 'k'),
                                   repeated("\u00e9", 20), std::string(39, 'k') + "\xFF"}) {
        build.arguments = {key};
        EXPECT_EQ(printed(build, 1),
                  versionLine + record("Configuration Issue\n\nOrvnae API key not valid." + usage));
    }
    build.arguments = {valid};
    EXPECT_THAT(printed(build, 1), HasSubstr(unanswered));
}

TEST(FailedCheck, EndsTheRunWithItsTitleAndReason) {
    SampleBuild build;
    const std::string products = build.environment["BUILT_PRODUCTS_DIR"];
    const auto missing = [](const std::string& key) {
        return "Failed to Detect Build Environment\n\n" + key + " value not found in environment";
    };
    const std::string wrongFolder =
        "Use a Target Run Script Build Phase\n\nMake sure the Orvane command is added to your project Target and "
        "not the scheme 'Post-actions'.\n\nThen, Build your project to continue.\n\n(Tarnwhistle error 602)";
    using Changes = std::map<std::string, std::optional<std::string>>;
    const std::pair<Changes, std::string> cases[] = {
        {{{"BUILT_PRODUCTS_DIR", ""}}, missing("BUILT_PRODUCTS_DIR")},
        {{{"INFOPLIST_PATH", {}}, {"DWARF_DSYM_FILE_NAME", {}}}, missing("INFOPLIST_PATH")},
        {{{"DWARF_DSYM_FILE_NAME", {}}}, missing("DWARF_DSYM_FILE_NAME")},
        {{{"DWARF_DSYM_FOLDER_PATH", {}}}, missing("DWARF_DSYM_FOLDER_PATH")},
        {{{"INFOPLIST_PATH", "No.app/Info.plist"}, {"WRAPPER_NAME", {}}},
         "Info.plist Error\n\nUnable to process Info.plist at path " + products +
             "/No.app/Info.plist\nThis could be a timing issue, make sure the Orvane run script build phase is the "
             "last build phase and no other scripts have moved (null) from the location Xcode generated it."},
        {{{"DWARF_DSYM_FILE_NAME", "No.dSYM"}},
         "dSYM Error\n\nUnable to process No.dSYM at path " + products +
             "/No.dSYM\nMake sure your project build settings are generating a dSYM file. "
             "DEBUG_INFORMATION_FORMAT should be set to dwarf-with-dsym for all configurations. This could also be "
             "a timing issue, make sure the Orvane run script build phase is the last build phase and no other "
             "scripts have moved the dSYM from the location Xcode generated it.\n\n"},
        {{{"SRCROOT", {}}}, wrongFolder},
        {{{"SRCROOT", build.workingDirectory + "/"}}, wrongFolder},
        {{{"SRCROOT", build.folder().path()}}, wrongFolder},
    };
    const auto environment = build.environment;
    for (const auto& [changes, expected] : cases) {
        build.environment = environment;
        for (const auto& [name, value] : changes)
            value ? static_cast<void>(build.environment[name] = *value)
                  : static_cast<void>(build.environment.erase(name));
        EXPECT_EQ(printed(build, 1), versionLine + record(expected));
    }
}

TEST(FailedCheck, RefusesAnyInfoPlistWithoutAnIdentifier) {
    const SampleBuild build;
    const std::string expected =
        versionLine + record("Required Info.plist Value Not Found\n\nA CFBundleIdentifier "
                             "value in your Info.plist is required. Please confirm this "
                             "value is present in " +
                             build.infoPlistPath() + " \n\n");
    const std::string start = "<plist version=\"1.0\">", key = start + "<dict><key>CFBundleIdentifier</key>";
    for (const std::string& bytes :
         {start + "<dict><key>CFBundleName</key><string>x</string></dict></plist>",
          key + "<string></string></dict></plist>", key + "<integer>7</integer></dict></plist>",
          std::string("CFBundleIdentifier = com.example"), std::string(), key + "<string>com.exa",
          start + "<array></array></plist>",
          start + repeated("<array>", 100'000) + repeated("</array>", 100'000) + "</plist>",
          repeated(std::string(1 << 20, ' '), 100)}) {
        std::ofstream(build.infoPlistPath()) << bytes;
        EXPECT_EQ(printed(build, 1), expected) << bytes.substr(0, 80);
    }
}

TEST(PassedChecks, TakeLinksOnEitherSideAndABinaryInfoPlist) {
    SampleBuild build;
    const std::string folder = build.workingDirectory, link = build.folder().path("link");
    fs::create_symlink(folder, link);
    const std::string plist = "'" + build.infoPlistPath() + "'";
    EXPECT_EQ(std::system(
                  ("plistutil -f bin -i " + plist + " -o " + plist + ".bin && mv " + plist + ".bin " + plist)
                      .c_str()),
              0);
    fs::remove_all(build.dSYMPath());
    std::ofstream(build.dSYMPath()) << "only its presence is checked";
    for (const auto& [root, directory] : {std::pair(link, folder), std::pair(folder, link)}) {
        build.environment["SRCROOT"] = root;
        build.workingDirectory = directory;
        EXPECT_THAT(printed(build, 1), testing::StartsWith(std::string(versionLine) + unanswered));
    }
}

TEST(DebugDefault, ComesFromTheArgumentsOrThePreferences) {
    SampleBuild build;
    const std::string debugLines = record("Src root " + build.workingDirectory) +
                                   record("Current directory path " + build.workingDirectory) +
                                   record("Run script build phase called from Xcode Bots 0");
    EXPECT_THAT(printed(build, 1), Not(HasSubstr("Src root")));
    build.folder().write("home/.config/com.tarnwhistle.run.plist",
                         "<plist version=\"1.0\"><dict><key>debug</key><true/></dict></plist>");
    EXPECT_THAT(printed(build, 1), HasSubstr(debugLines));
    build.arguments.insert(build.arguments.end(), {"-debug", "NO"});
    EXPECT_THAT(printed(build, 1), Not(HasSubstr("Src root")));
    build.arguments.back() = "YES";
    EXPECT_THAT(printed(build, 1), HasSubstr(debugLines));
}

TEST(Artifact, IsWrittenWhenAskedForWhateverTheRoad) {
    SampleBuild build;
    build.arguments = {"<&>" + std::string(37, '\'')};
    const std::string defaultPath = build.environment["BUILT_PRODUCTS_DIR"] + "/tarnwhistle.plist";
    build.environment["TARNWHISTLE_CREATE_ARTIFACT"] = "NO";
    printed(build, 1);
    EXPECT_FALSE(fs::exists(defaultPath));
    build.environment["TARNWHISTLE_CREATE_ARTIFACT"] = "1";
    printed(build.launchBelow({"Xcode"}), 1);
    EXPECT_THAT(std::string(platform::readFile(defaultPath)->bytes()),
                HasSubstr("<key>TarnwhistleAPIKey</key>\n\t<string>&lt;&amp;&gt;''"));

    fs::permissions(defaultPath, fs::perms(0620));
    printed(build, 1);
    EXPECT_EQ(fs::status(defaultPath).permissions(), fs::perms(0620));

    std::string& path = build.environment["TARNWHISTLE_ARTIFACT_PATH"];
    for (const char* bad : {"", "/dev/null", "missing/folder/x", "/"}) {
        path = bad;
        EXPECT_THAT(printed(build, 1),
                    HasSubstr(record("Failed to write data to artifact path " + path + "\n\n") + unanswered));
    }
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    path = "relative.plist";
    printed(build, 1);
    EXPECT_TRUE(fs::exists(build.workingDirectory + "/relative.plist"));
}

TEST(Road, IsChosenByTheProcessesAboveTheRun) {
    const std::string bots = record("Run script build phase called from Xcode Bots 1") + unanswered;
    const auto xcode = [](int found) {
        return record("Run script build phase called from Xcode Bots 0") +
               record("Run script build phase called from Xcode.app " + std::to_string(found)) +
               (found ? record("Sending data to Orvane.app") + "\n\nOrvane: This app relies on Orvane."
                      : unanswered);
    };
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, xcode(0)},
        {{"Xcode"}, xcode(1)},
        {{"Xcode-beta"}, xcode(0)},
        {{"Xcode", "a (b) c\n)"}, xcode(1)},
        {{"xcsbuildd"}, bots},
        {{"Xcode", "xcsbuildd"}, bots},
    };
    for (const auto& [parents, expected] : cases) {
        SampleBuild build;
        build.arguments.insert(build.arguments.end(), {"-debug", "YES"});
        EXPECT_THAT(printed(build.launchBelow(parents), 1), HasSubstr(expected));
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
    EXPECT_THAT(printed(launch, 1), HasSubstr(unanswered));
}

TEST(Console, KeepsEveryRecordOfManyRunsWhole) {
    constexpr int runCount = 200;
    SampleBuild build;
    build.environment.erase("INFOPLIST_PATH");
    support::Launch launch = build.launch();
    launch.standardErrorPath = build.folder().path("log");
    std::vector<support::ChildProcess> runs;
    runs.reserve(runCount);
    for (int i = 0; i < runCount; ++i)
        runs.emplace_back(launch);
    for (auto& run : runs)
        EXPECT_EQ(run.wait().status, 1);

    std::string log = support::messages(std::string(platform::readFile(launch.standardErrorPath)->bytes()));
    for (const std::string& whole :
         {std::string(versionLine),
          record("Failed to Detect Build Environment\n\nINFOPLIST_PATH value not found in "
                 "environment")}) {
        int count = 0;
        for (std::size_t at; (at = log.find(whole)) != std::string::npos; ++count)
            log.erase(at, whole.size());
        EXPECT_EQ(count, runCount);
    }
    EXPECT_EQ(log, "");
}

TEST(Console, OutlivesAClosedOrFullStandardError) {
    for (const char* redirected :
         {"\"$@\" 2>&-; echo $?", "\"$@\" 2>/dev/full; echo $?", "\"$@\" >&- 2>&- <&-; echo $?",
          "\"$@\" 2>&1 | exit 0; echo ${PIPESTATUS[0]}"}) {
        const SampleBuild build;
        support::Launch launch = build.launch();
        launch.arguments.insert(launch.arguments.begin(), {"/bin/bash", "-c", redirected, "sh"});
        EXPECT_EQ(run(launch).standardOutput, "1\n") << redirected;
    }
}

TEST(HostDetection, WalksToTheFirstProcessAndAsksAgainWhileTheTableFails) {
    const std::map<std::uint32_t, platform::ProcessRecord> table = {{70, {70, 60, "run"}},
                                                                    {60, {60, 50, "xcodebuild"}},
                                                                    {50, {50, 1, "Xcode"}},
                                                                    {1, {1, 0, "launchd"}},
                                                                    {9, {9, 8, "run"}}};
    int failures = 3;
    const ProcessLookup lookup = [&](std::uint32_t identifier) -> std::optional<platform::ProcessRecord> {
        if (identifier == 50 && failures-- > 0)
            return std::nullopt;
        const auto found = table.find(identifier);
        return found == table.end() ? platform::ProcessRecord() : found->second;
    };
    for (const char* name : {"run", "xcodebuild", "Xcode", "launchd"})
        EXPECT_TRUE(isProcessNameInHierarchy(name, 70, lookup)) << name;
    for (const char* name : {"xcode", "Xcod", "Xcode2"})
        EXPECT_FALSE(isProcessNameInHierarchy(name, 70, lookup)) << name;
    EXPECT_FALSE(isProcessNameInHierarchy("Xcode", 9, lookup)) << "a parent that has gone ends the walk";
}

TEST(ProcessTable, HasNoRecordForProcessesThatAreNotThere) {
    for (const std::uint32_t identifier : {0u, 4'194'305u, 4'294'967'295u})
        EXPECT_EQ(platform::processRecord(identifier).value().identifier, 0u);
    EXPECT_EQ(platform::processRecord(platform::ownProcessIdentifier())->commandName, "run_tests");
}

TEST(SearchPaths, AreSplitAtEachBlankWithoutQuotes) {
    EXPECT_THAT(searchPathsToArray("\"/a b\"  /c\" "), testing::ElementsAre("/a", "b", "", "/c", ""));
    EXPECT_THAT(searchPathsToArray(""), testing::ElementsAre(""));
}

} // namespace
} // namespace orvane
