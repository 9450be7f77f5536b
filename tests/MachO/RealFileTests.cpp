#include "MachO/TWLdSYM.h"
#include "RealFiles.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>

namespace {

using support::outputOf;

/// "7.0.0" as llvm-objdump prints it: without a third part of 0, and "n/a" for no version.
std::string printed(const macho::TWLMachOVersion& version) {
    if (version == macho::TWLMachOVersion())
        return "n/a";
    const std::string text = *macho::TWLMachOFormatVersion(&version);
    return version.bugfix == 0 ? text.substr(0, text.size() - 2) : text;
}

/// What llvm-objdump shows of one slice: its UUID, versions and dylibs, in the order of its commands.
std::vector<std::string> commandsShown(const std::string& path, const std::string& architecture) {
    std::istringstream lines(
        outputOf(std::string(OBJDUMP) + " --macho --private-headers --arch " + architecture + " " + path));
    std::vector<std::string> shown;
    std::string cmd;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string key;
        std::string value;
        words >> key >> value;
        if (key == "cmd")
            cmd = value;
        const bool isVersion = cmd.starts_with("LC_VERSION_MIN_") && (key == "version" || key == "sdk");
        if ((cmd == "LC_UUID" && key == "uuid") || (cmd == "LC_LOAD_DYLIB" && key == "name") || isVersion)
            shown.push_back(key + " " + value);
    }
    std::sort(shown.begin(), shown.end());
    return shown;
}

std::string dashed(std::string uuid) {
    std::transform(uuid.begin(), uuid.end(), uuid.begin(),
                   [](char c) { return static_cast<char>(std::toupper(c)); });
    for (const std::size_t position : {8u, 13u, 18u, 23u})
        uuid.insert(position, "-");
    return uuid;
}

std::vector<std::string> commandsOf(const TWLMachOSlice& slice) {
    std::vector<std::string> commands;
    for (const std::string& path : slice.linkedDylibs())
        commands.push_back("name " + path);
    if (slice.uuid())
        commands.push_back("uuid " + dashed(*slice.uuid()));
    if (slice.minimumOSVersion() != macho::TWLMachOVersion()) {
        commands.push_back("version " + printed(slice.minimumOSVersion()));
        commands.push_back("sdk " + printed(slice.linkedSDKVersion()));
    }
    std::sort(commands.begin(), commands.end());
    return commands;
}

std::string uuidLines(const TWLMachOBinary& binary) {
    std::string lines;
    binary.enumerateUUIDs([&](const auto& uuid, const auto& architecture) {
        if (uuid)
            lines += "UUID: " + dashed(*uuid) + " (" + architecture + ") " + binary.path() + "\n";
    });
    return lines;
}

TEST(RealFiles, ReadAsTheirOwnToolsReadThem) {
    const RealFiles files;
    for (const std::string& path : files.paths()) {
        const auto binary = TWLMachOBinary::MachOBinaryWithPath(path);
        ASSERT_TRUE(binary) << path;
        std::string architectures;
        for (const auto& slice : binary->slices()) {
            EXPECT_EQ(commandsOf(*slice), commandsShown(path, slice->architectureName())) << path;
            architectures += slice->architectureName() + " ";
        }
        EXPECT_EQ(architectures + "\n", outputOf(std::string(LIPO) + " " + path + " -archs")) << path;
        EXPECT_EQ(uuidLines(*binary), outputOf(std::string(DWARFDUMP) + " --uuid " + path)) << path;
    }
}

TEST(RealFiles, DSYMBundleCarriesTheUUIDsOfItsBuild) {
    const RealFiles files;
    const auto bundle = TWLdSYM::initWithURL(platform::URL::fileURLWithPath(files.dSYM()));
    ASSERT_TRUE(bundle && bundle->executablePath());
    EXPECT_EQ(bundle->bundleIdentifier(), "app");
    const auto build = TWLMachOBinary::MachOBinaryWithPath(files.app());
    EXPECT_EQ(TWLMachOBinary::MachOBinaryWithPath(*bundle->executablePath())->instanceIdentifier(),
              build->instanceIdentifier());
    EXPECT_EQ(build->slices().size(), 2u);
    EXPECT_EQ(*static_cast<const std::uint32_t*>(build->sliceForArchitecture("x86_64")->unwindInfoData()), 1u)
        << "the version of the section's format";
}

} // namespace
