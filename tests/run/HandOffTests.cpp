#include "platform/LaunchServices.h"
#include "run/HandOff.h"
#include "run/ToolBundle.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>

namespace orvane {
namespace {

using support::TemporaryFolder;
using testing::HasSubstr;

TEST(URLEncode, LeavesOnlyUnreservedCharacters) {
    const std::pair<const char*, const char*> cases[] = {
        {"/Users/a b/x", "%2FUsers%2Fa%20b%2Fx"},
        {"azAZ09-._~", "azAZ09-._~"},
        {"!*'\"();:@&=+$,/?#[] %", "%21%2A%27%22%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%23%5B%5D%20%25"},
        {"100%25", "100%2525"},
        {"<>\\^`{|}\x7f\n", "%3C%3E%5C%5E%60%7B%7C%7D%7F%0A"},
        {"\u00e9\xff", "%C3%A9%FF"}};
    for (const auto& [text, encoded] : cases)
        EXPECT_EQ(urlEncode(text), encoded);
}

TEST(HandOffURL, NamesTheBuildPlistOnly) {
    HandOff handOff{
        .buildPlistPath = "/Users/a b/x", .apiKey = "k", .apiEndpoint = "e", .bundleIdentifier = "b"};
    EXPECT_EQ(handOffURL(handOff, {{"SDKROOT", "s"}}),
              "tarnwhistle://xcode?TARNWHISTLE_BUILD_PLIST_PATH=%2FUsers%2Fa%20b%2Fx");
}

TEST(HandOffURL, PacksTheSettingsInTheLegacyForm) {
    const HandOff handOff{
        .buildPlistPath = {}, .apiKey = "k/", .apiEndpoint = "", .bundleIdentifier = {}, .legacy = true};
    BuildSettings settings = {{"BUILT_PRODUCTS_DIR", "/b p"},
                              {"PRODUCT_NAME", "P"},
                              {"WRAPPER_NAME", "P.app"},
                              {"DWARF_DSYM_FOLDER_PATH", "/d"},
                              {"DWARF_DSYM_FILE_NAME", "P.app.dSYM"},
                              {"PLATFORM_NAME", "iphoneos"},
                              {"INFOPLIST_PATH", "i"},
                              {"CONFIGURATION", "Debug"},
                              {"SDKROOT", "&"}};
    const std::string url =
        "tarnwhistle://xcode?BUILT_PRODUCTS_DIR=%2Fb%20p&PRODUCT_NAME=P&WRAPPER_NAME=P.app"
        "&DWARF_DSYM_FOLDER_PATH=%2Fd&DWARF_DSYM_FILE_NAME=P.app.dSYM&PLATFORM_NAME=iphoneos&PROJECT_FILE_PATH="
        "&INFOPLIST_PATH=i&CONFIGURATION=Debug&SDKROOT=%26&TARNWHISTLE_FRAMEWORK_PATH=" +
        urlEncode(toolBundlePath()) + "&TARNWHISTLE_API_KEY=k%2F&TARNWHISTLE_RUN_VERSION=149";
    EXPECT_EQ(handOffURL(handOff, settings), url);
    settings["XCODE_VERSION_ACTUAL"] = "05/11 b";
    settings["FRAMEWORK_SEARCH_PATHS"] = R"("/a b" /c)";
    EXPECT_EQ(handOffURL(handOff, settings),
              url + "&XCODE_VERSION_ACTUAL=05/11 b&FRAMEWORK_SEARCH_PATHS=%22%2Fa%20b%22%20%2Fc");
}

TEST(CacheDirectory, IsOneFolderForEachEndpoint) {
    const TemporaryFolder folder;
    ASSERT_EQ(setenv("XDG_CACHE_HOME", folder.path("caches").c_str(), 1), 0);
    const std::string root = folder.path("caches/com.tarnwhistle.mac/");
    const std::pair<std::string, std::string> cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {std::string("abc\0def", 7), "900150983cd24fb0d6963f7d28e17f72"},
        {std::string(1 << 20, 'a'), "7202826a7791073fe2787f0c94603278"}};
    for (const auto& [endpoint, digest] : cases) {
        EXPECT_EQ(cacheDirectory(endpoint), root + digest + "/builds");
        EXPECT_TRUE(std::filesystem::is_directory(root + digest + "/builds"));
    }
    EXPECT_NE(cacheDirectory("https://a"), cacheDirectory("https://a/"));
    EXPECT_FALSE(cacheBuildItems());
}

TEST(CacheDirectory, IsGivenEvenWhenItCannotBeMade) {
    const TemporaryFolder folder;
    ASSERT_EQ(setenv("XDG_CACHE_HOME", folder.write("file", "").c_str(), 1), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(cacheDirectory(""),
              folder.path("file/com.tarnwhistle.mac/d41d8cd98f00b204e9800998ecf8427e/builds"));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, HasSubstr("] ERROR: unable to write directory for object store.\n"));
    EXPECT_THAT(log, HasSubstr("] Error Domain=NSPOSIXErrorDomain Code=20 "));
}

TEST(CacheDSYMs, CopiesWhatIsNamedSoAndNothingElse) {
    const TemporaryFolder folder;
    for (const char* file : {"p/A.app.dSYM/Contents/x", "p/B.dSYM", "p/C.dsym", "p/D.DSYM", "p/E.dSYM.zip",
                             "p/.dSYM", "p/dSYM", "p/deeper/F.dSYM/x"})
        folder.write(file, file);
    EXPECT_THAT(cacheDSYMsAtPath(folder.path("p"), folder.makeFolder("to")),
                testing::UnorderedElementsAre(folder.path("to/A.app.dSYM"), folder.path("to/B.dSYM")));
    EXPECT_TRUE(std::filesystem::exists(folder.path("to/A.app.dSYM/Contents/x")));
    EXPECT_THAT(cacheDSYMsAtPath(folder.makeFolder("empty"), folder.path("to")), testing::IsEmpty());
}

TEST(CacheDSYMsDeathTest, EndsTheRunWhenABundleIsNotWhole) {
    const TemporaryFolder folder;
    folder.makeFolder("to");
    const auto ended = testing::ExitedWithCode(1);
    EXPECT_EXIT(cacheDSYMsAtPath(folder.path("gone"), folder.path("to")), ended,
                "\\] Unable to get contents of path " + folder.path("gone") +
                    " \nError Domain=NSPOSIXErrorDomain");
    folder.write("p/A.dSYM/x", "");
    EXPECT_EQ(mkfifo(folder.path("p/A.dSYM/pipe").c_str(), 0666), 0);
    EXPECT_EXIT(cacheDSYMsAtPath(folder.path("p"), folder.path("to")), ended,
                "\\] Unable to copy dSYM at path " + folder.path("p") + " to path " +
                    folder.path("to/A.dSYM") + " Error Domain=.*/A.dSYM/pipe");
}

} // namespace
} // namespace orvane
