#include "RealFiles.h"
#include "fuzz/MachOImage.h"

#include <gmock/gmock.h>

namespace {

using support::runShell;
using testing::HasSubstr;

TEST(Symbols, ShowsSlicesAndWhetherTheUUIDsMatch) {
    const RealFiles files;
    const std::string command = "cd " + files.path() + " && " SYMBOLS " ";
    const auto same = runShell(command + "app app.dSYM");
    EXPECT_EQ(same.status, 0);
    EXPECT_THAT(same.output, testing::EndsWith("\nUUIDs match.\n"));
    EXPECT_THAT(runShell(command + "app arm64").output, testing::EndsWith("\nUUIDs do not match.\n"));

    files.write("quote\"d\n", fuzz::MachOImage().dylib("/a\\b").dylib("/c").bytes());
    files.write("text", "no Mach-O file at all");
    const auto json = runShell(command + "--json text quote* missing app.dSYM 2>errors | python3 -c '"
                                         "import json, sys; print(json.load(sys.stdin))'");
    EXPECT_THAT(
        json.output,
        HasSubstr("[{'path': 'quote\"d\\n', 'kind': 'mach-o', 'slices': [{'architectureName': 'x86_64', "
                  "'uuid': None, 'minimumOSVersion': '0.0.0', 'linkedSDKVersion': '0.0.0', "
                  "'linkedDylibs': ['/a\\\\b', '/c']}]}, {'path': 'app.dSYM', 'kind': 'dsym', "
                  "'bundleIdentifier': 'app', 'bundleVersion': '1', 'shortBundleVersion': '1.0', "));
    const std::string reason = " cannot be read: it is no Mach-O file and no dSYM bundle that holds one.\n";
    EXPECT_EQ(runShell("cat " + files.path("errors")).output, "text" + reason + "missing" + reason);
    EXPECT_EQ(runShell(command + "missing 2>&1").status, 1);
}

} // namespace
