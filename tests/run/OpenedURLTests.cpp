#include "SampleBuild.h"
#include "platform/files/Files.h"
#include "platform/propertylist/PropertyList.h"
#include "run/HandOff.h"

#include <cstdlib>
#include <filesystem>

namespace orvane {
namespace {

using namespace testing;

/// The companion road of a tool that ORVANE_TOOL_RUNNER starts. Set ORVANE_RUNNER_HAS_COMPANION if the
/// command takes the folder in ORVANE_TEST_COMPANION as the companion app and appends each URL that the tool
/// opens to the file in ORVANE_TEST_OPENED.
TEST(ToolOfAnotherSystem, HandsTheBuildToTheCompanion) {
    if (toolRunner().empty() || !std::getenv("ORVANE_RUNNER_HAS_COMPANION"))
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
