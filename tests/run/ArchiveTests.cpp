#include "SampleBuild.h"
#include "sample/LocalService.h"
#include "support/MachOImage.h"

#include <filesystem>

namespace orvane {
namespace {

namespace fs = std::filesystem;
using namespace testing;

/// An archiver that writes as that of macOS does: it cannot go back in its output, so sizes and check sums
/// follow the contents, and "__MACOSX/.../._NAME" holds the attributes of each file. The function `change`
/// replaces the contents.
constexpr const char* archiverOfMacOS = R"(
import os, sys, zipfile
class Stream:
    def __init__(self, path):
        self.file = open(path, "wb")
        self.write, self.flush = self.file.write, self.file.flush
bundle = sys.argv[4]
with zipfile.ZipFile(Stream(sys.argv[5]), "w", zipfile.ZIP_DEFLATED) as archive:
    for folder, _, names in os.walk(bundle):
        for name in names:
            path = os.path.relpath(os.path.join(folder, name), os.path.dirname(bundle))
            archive.writestr(path, change(open(os.path.join(folder, name), "rb").read()))
            attributes = os.path.join("__MACOSX", os.path.dirname(path), "._" + name)
            archive.writestr(attributes, bytes.fromhex("0005160700020000") + bytes(74))
)";

TEST(Archive, OfAnArchiverAsMacOSHasItIsStoredAndCompared) {
    if (!toolRunner().empty())
        GTEST_SKIP() << "A tool for another system uses the archiver of that system.";
    const struct {
        const char* change;
        int status;
        std::string message;
    } cases[] = {
        {"lambda content: content", 0,
         "2 files, as in the dSYM; 2 entries of macOS alone; 4 data descriptors\n"},
        {"lambda content: content[:-1]", 1, "are missing, additional or different: ['Sample App.app.dSYM/"},
    };
    for (const auto& [change, status, message] : cases) {
        SCOPED_TRACE(change);
        SampleBuild build;
        const support::MachOImage image = support::MachOImage(0x0100000C, 0).uuid('\x22');
        build.writeProduct("Sample App.app/Sample App", image.bytes());
        build.writeProduct("Sample App.app.dSYM/Contents/Info.plist", "<plist/>");
        build.writeProduct("Sample App.app.dSYM/Contents/Resources/DWARF/Caf\u00e9", image.bytes());
        const std::string archiver = build.folder.write(
            "Orvane.framework/ditto",
            std::string("#!/usr/bin/env -S PATH=/usr/bin python3\nchange = ") + change + archiverOfMacOS);
        fs::permissions(archiver, fs::perms::all);
        fs::copy_file(build.tool, build.folder.path("Orvane.framework/run"));
        build.tool = build.folder.path("Orvane.framework/run");

        const sample::LocalService service(build.folder.path("service"), 0);
        build.environment["ORVANE_TEST_API_ENDPOINT"] = build.environment["ORVANE_TEST_SYMBOLS_ENDPOINT"] =
            service.origin();
        EXPECT_THAT(printed(build, 0), HasSubstr("uploaded statusCode 201"));

        const support::Ending ending =
            support::runShell(ORVANE_SAMPLE "/check-archive '" + build.folder.path() +
                              "'/service/2-upload/*.zip '" + build.dSYM + "'");
        EXPECT_EQ(ending.status, status);
        EXPECT_THAT(ending.standardOutput + ending.standardError, HasSubstr(message));
    }
}

} // namespace
} // namespace orvane
