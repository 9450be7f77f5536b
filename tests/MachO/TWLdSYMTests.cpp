#include "MachO/TWLdSYM.h"
#include "fuzz/MachOImage.h"
#include "support/Shell.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace {

using support::outputOf;
using support::TemporaryFolder;

std::shared_ptr<TWLdSYM> bundleIn(const TemporaryFolder& folder) {
    return TWLdSYM::dSYMWithURL(platform::URL::fileURLWithPath(folder.path("A B.dSYM")));
}

std::vector<std::string> pairsOf(const TWLdSYM& bundle) {
    std::vector<std::string> pairs;
    bundle.enumerateUUIDs([&](const auto& uuid, const auto& architecture) {
        pairs.push_back(architecture + " " + uuid.value_or("none"));
    });
    return pairs;
}

const std::string dwarf = "A B.dSYM/Contents/Resources/DWARF/";

TEST(TWLdSYM, ReadsItsIdentityFromAnyInfoPlist) {
    const auto plist = [](const std::string& content) {
        return "<plist version=\"1.0\"><dict>" + content + "</dict></plist>";
    };
    const std::string prefixed = "<key>CFBundleIdentifier</key><string>com.apple.xcode.dsym.ShopApp</string>";
    const std::string versions = "<key>CFBundleVersion</key><integer>7</integer>"
                                 "<key>CFBundleShortVersionString</key><string>1.2</string>";
    const TemporaryFolder folder;
    folder.write(dwarf + "Shop", fuzz::MachOImage().bytes());
    const auto identity = [&](const std::string& content) {
        const std::string path = folder.write("A B.dSYM/Contents/Info.plist", content);
        if (content.starts_with(plist(prefixed)))
            EXPECT_EQ(outputOf("plistutil -f bin -i '" + path + "' -o '" + path + ".bin' && mv '" + path +
                               ".bin' '" + path + "'"),
                      "");
        const auto bundle = bundleIn(folder);
        return bundle->bundleIdentifier().value_or("null") + " " + bundle->bundleVersion().value_or("null") +
               " " + bundle->shortBundleVersion().value_or("null");
    };
    EXPECT_EQ(identity(plist(prefixed + versions)), "ShopApp 7 1.2");
    EXPECT_EQ(identity(plist(prefixed)), "ShopApp null null") << "binary";
    EXPECT_EQ(identity(plist("<key>CFBundleIdentifier</key><string>com.apple.xcode.dsym</string>")),
              "com.apple.xcode.dsym null null");
    for (const std::string& broken :
         {std::string(), std::string("bplist00"), plist(prefixed + "<"),
          plist("<key>CFBundleIdentifier</key><array/><key>CFBundleVersion</key><true/>"),
          std::string("<plist><array/></plist>")})
        EXPECT_EQ(identity(broken), "null null null") << broken;
    outputOf("rm '" + folder.path("A B.dSYM/Contents/Info.plist") + "'");
    EXPECT_EQ(bundleIn(folder)->bundleIdentifier(), std::nullopt);
}

TEST(TWLdSYM, TakesTheFirstEntryOfItsFolderWhateverItIs) {
    const TemporaryFolder folder;
    EXPECT_EQ(bundleIn(folder), nullptr);
    folder.write("A B.dSYM", "a plain file of more than 16 bytes");
    EXPECT_EQ(bundleIn(folder), nullptr);
    outputOf("rm '" + folder.path("A B.dSYM") + "'");
    folder.write("A B.dSYM/Contents/Resources/DWARF", "a file");
    EXPECT_EQ(bundleIn(folder), nullptr);
    outputOf("rm '" + folder.path("A B.dSYM/Contents/Resources/DWARF") + "'");
    folder.makeFolder(dwarf);
    EXPECT_EQ(bundleIn(folder), nullptr);

    const std::string path = folder.write(dwarf + "b", fuzz::sampleMachOFiles().back());
    folder.write(dwarf + "c", fuzz::MachOImage().bytes());
    folder.write(dwarf + ".DS_Store", std::string(16, '\0'));
    EXPECT_EQ(bundleIn(folder)->executablePath(), path);
    EXPECT_EQ(bundleIn(folder)->executableURL(), platform::URL::fileURLWithPath(path));
    EXPECT_THAT(pairsOf(*bundleIn(folder)),
                testing::ElementsAre("arm64 " + std::string(32, '1'), "armv7 " + std::string(32, '2')));
    folder.write(dwarf + "a/sub-folder first", fuzz::MachOImage().bytes());
    const auto bundle = bundleIn(folder);
    EXPECT_TRUE(bundle && !bundle->executablePath() && !bundle->executableURL());
    EXPECT_THAT(pairsOf(*bundle), testing::IsEmpty());
}

} // namespace
