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
    const std::string opened = build.folder.path("opened"), app = build.folder.path("Orvane.app");
    build.environment["ORVANE_TEST_COMPANION"] = app;
    build.environment["ORVANE_TEST_OPENED"] = opened;
    const auto install = [&](const std::string& version) {
        std::filesystem::remove(opened);
        build.folder.write("Orvane.app/Contents/Info.plist",
                           "<plist><dict><key>CFBundleVersion</key><string>" + version +
                               "</string></dict></plist>");
    };
    install("203");
    EXPECT_EQ(printed(build, 0), versionLine);
    ASSERT_TRUE(platform::fileExists(opened)) << "The command opened no URL.";
    std::string plist;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(build.folder.path("home")))
        if (entry.path().filename() == "Build.plist")
            plist = entry.path();
    EXPECT_THAT(std::string(platform::readFile(opened)->bytes()),
                StartsWith("tarnwhistle://xcode?TARNWHISTLE_BUILD_PLIST_PATH=" + urlEncode(plist)));
    const auto contents = platform::readDictionary(plist).value();
    EXPECT_EQ(contents.at("TARNWHISTLE_API_KEY"), platform::Value(build.arguments[0]));
    EXPECT_EQ(contents.at("TARNWHISTLE_RUN_VERSION"), platform::Value(toolBuildVersion()));
    const std::string dSYM = std::filesystem::path(plist).replace_filename("Sample App.app.dSYM");
    EXPECT_EQ(contents.at("dSYMs"), platform::Value(platform::Value::Array{dSYM}));
    EXPECT_TRUE(platform::fileExists(dSYM));

    install("202");
    EXPECT_EQ(printed(build, 0), versionLine);
    EXPECT_THAT(
        std::string(platform::readFile(opened)->bytes()),
        StartsWith("tarnwhistle://xcode?BUILT_PRODUCTS_DIR=" + urlEncode(build.products) + "&PRODUCT_NAME="));
}

} // namespace
} // namespace orvane
