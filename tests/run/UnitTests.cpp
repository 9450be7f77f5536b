#include "platform/ProcessTable.h"
#include "run/BuildSettings.h"
#include "run/DeploymentTarget.h"
#include "run/FrameworkProbes.h"
#include "run/HostDetection.h"
#include "run/ServiceCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace orvane {
namespace {

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
    for (const std::uint32_t identifier : {0u, 4'194'305u, 4'294'967'295u}) {
        const auto record = platform::processRecord(identifier);
        ASSERT_TRUE(record);
        EXPECT_EQ(record->identifier, 0u);
    }
    EXPECT_EQ(platform::processRecord(platform::ownProcessIdentifier())->commandName, "run_tests");
}

TEST(SearchPaths, AreSplitAtEachBlankWithoutQuotes) {
    EXPECT_THAT(searchPathsToArray("\"/a b\"  /c\" "), testing::ElementsAre("/a", "b", "", "/c", ""));
    EXPECT_THAT(searchPathsToArray(""), testing::ElementsAre(""));
}

TEST(DeploymentTarget, KnowsWhatTheServiceSupports) {
    const BuildSettings none;
    EXPECT_TRUE(iOSDeploymentTargetIsUnsupported({4, 3, 0}, none));
    EXPECT_FALSE(iOSDeploymentTargetIsUnsupported({5, 0, 0}, none));
    EXPECT_FALSE(iOSDeploymentTargetIsUnsupported({0xFFFFFFFF, 0, 0}, none));
    EXPECT_TRUE(iOSDeploymentTargetIsUnsupported({0, 9, 9}, none));
    const std::pair<const char*, bool> settings[] = {
        {"4.3", true}, {"5.0", false}, {" +6", false}, {"-7", true}, {"x9", true}};
    for (const auto& [target, unsupported] : settings)
        EXPECT_EQ(iOSDeploymentTargetIsUnsupported({}, {{"IPHONEOS_DEPLOYMENT_TARGET", target}}), unsupported)
            << target;
    const std::pair<macho::TWLMachOVersion, bool> versions[] = {{{10, 6, 8}, true},  {{10, 7, 0}, false},
                                                                {{10, 9, 0}, false}, {{9, 9, 0}, true},
                                                                {{11, 0, 0}, true},  {{11, 7, 0}, false}};
    for (const auto& [version, unsupported] : versions)
        EXPECT_EQ(OSXDeploymentTargetIsUnsupported(version), unsupported)
            << version.major << '.' << version.minor;
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
