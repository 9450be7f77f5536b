#include "MachO/TWLdSYM.h"
#include "RealFiles.h"

#include <gtest/gtest.h>

namespace {

using support::outputOf;

std::string linesOf(const TWLMachOSlice& slice) {
    const auto minimum = slice.minimumOSVersion(), sdk = slice.linkedSDKVersion();
    std::string lines = slice.uuid() ? "uuid " + *slice.uuid() + "\n" : "";
    if (minimum != macho::TWLMachOVersion())
        lines +=
            "version " + *TWLMachOFormatVersion(&minimum) + "\nsdk " + *TWLMachOFormatVersion(&sdk) + "\n";
    for (const std::string& path : slice.linkedDylibs())
        lines += "name " + path + "\n";
    return lines;
}

/// What llvm-objdump prints of the same commands, with its way to write UUIDs and versions made ours.
std::string objdumpLines(const std::string& path) {
    return outputOf(LLVM "/llvm-objdump --macho --private-headers --arch all " + path + R"( | awk '
        $1 == "cmd" { cmd = $2 }
        cmd == "LC_UUID" && $1 == "uuid" { gsub("-", "", $2); print $1, tolower($2) }
        cmd == "LC_LOAD_DYLIB" && $1 == "name" { print $1, $2 }
        cmd ~ /^LC_VERSION_MIN_/ && ($1 == "version" || $1 == "sdk") {
            print $1, $2 == "n/a" ? "0.0.0" : split($2, parts, ".") == 2 ? $2 ".0" : $2 }')");
}

TEST(RealFiles, ReadAsTheirOwnToolsReadThem) {
    const RealFiles files;
    for (const std::string& path : files.paths()) {
        const auto binary = TWLMachOBinary::MachOBinaryWithPath(path);
        ASSERT_TRUE(binary) << path;
        std::string lines, architectures, uuids;
        for (const auto& slice : binary->slices()) {
            lines += linesOf(*slice);
            architectures += slice->architectureName() + " ";
            if (slice->uuid())
                uuids += *slice->uuid() + " (" + slice->architectureName() + ")\n";
        }
        EXPECT_EQ(lines, objdumpLines(path)) << path;
        EXPECT_EQ(architectures + "\n", outputOf(LLVM "/llvm-lipo " + path + " -archs"));
        EXPECT_EQ(uuids, outputOf(LLVM "/llvm-dwarfdump --uuid " + path +
                                  " | awk '{ gsub(\"-\", \"\", $2); print tolower($2), $3 }'"));
    }
}

TEST(RealFiles, DSYMBundleCarriesTheUUIDsOfItsBuild) {
    const RealFiles files;
    const auto bundle = TWLdSYM::initWithURL(platform::URL::fileURLWithPath(files.path("app.dSYM")));
    ASSERT_TRUE(bundle && bundle->executablePath());
    EXPECT_EQ(bundle->bundleIdentifier(), "app");
    const auto build = TWLMachOBinary::MachOBinaryWithPath(files.path("app"));
    EXPECT_EQ(TWLMachOBinary::MachOBinaryWithPath(*bundle->executablePath())->instanceIdentifier(),
              build->instanceIdentifier());
    EXPECT_EQ(*static_cast<const char*>(build->sliceForArchitecture("x86_64")->unwindInfoData()), 1)
        << "the version of the section's format";
}

} // namespace
