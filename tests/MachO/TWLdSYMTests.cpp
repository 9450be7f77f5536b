#include "MachO/TWLdSYM.h"
#include "fuzz/MachOImage.h"
#include "support/Shell.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace {

const std::string dwarf = "A B.dSYM/Contents/Resources/DWARF";

/// A folder with a bundle "A B.dSYM", or with what makes it none.
struct BundleFolder : support::TemporaryFolder {
    std::shared_ptr<TWLdSYM> bundle() const {
        return TWLdSYM::dSYMWithURL(platform::URL::fileURLWithPath(path("A B.dSYM")));
    }
    std::string identity(const std::string& infoPlist, const std::string& format = "xml") const {
        const std::string file = write("A B.dSYM/Contents/Info.plist", infoPlist);
        if (format == "bin")
            support::outputOf("cd '" + path() + "' && plistutil -f bin -i '" + file + "' -o x && mv x '" +
                              file + "'");
        return bundle()->bundleIdentifier().value_or("null") + " " +
               bundle()->bundleVersion().value_or("null") + " " +
               bundle()->shortBundleVersion().value_or("null");
    }
};

TEST(TWLdSYM, ReadsItsIdentityFromAnyInfoPlist) {
    const std::string list = "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
                             "<string>com.apple.xcode.dsym.ShopApp</string><key>CFBundleVersion</key>"
                             "<integer>7</integer><key>CFBundleShortVersionString</key><string>1.2</string>";
    const BundleFolder folder;
    folder.write(dwarf + "/Shop", fuzz::MachOImage().bytes());
    EXPECT_EQ(folder.bundle()->bundleIdentifier(), std::nullopt);
    for (const char* format : {"xml", "bin"})
        EXPECT_EQ(folder.identity(list + "</dict></plist>", format), "ShopApp 7 1.2");
    EXPECT_EQ(folder.identity("<plist><dict><key>CFBundleIdentifier</key><string>com.apple.xcode</string>"
                              "<key>CFBundleVersion</key><true/></dict></plist>"),
              "com.apple.xcode null null");
    for (const char* broken : {"", "bplist00", list.c_str(), "<plist><array/></plist>",
                               "<plist><dict><key>CFBundleIdentifier</key><array/></dict></plist>"})
        EXPECT_EQ(folder.identity(broken), "null null null") << broken;
}

TEST(TWLdSYM, TakesTheFirstEntryOfItsFolderWhateverItIs) {
    EXPECT_EQ(BundleFolder().bundle(), nullptr);
    for (const std::string& file : {std::string("A B.dSYM"), dwarf}) {
        const BundleFolder folder;
        folder.write(file, "a plain file of more than 16 bytes");
        EXPECT_EQ(folder.bundle(), nullptr);
    }
    const BundleFolder folder;
    folder.makeFolder(dwarf);
    EXPECT_EQ(folder.bundle(), nullptr);

    const std::string path = folder.write(dwarf + "/b", fuzz::sampleMachOFiles().back());
    folder.write(dwarf + "/c", fuzz::MachOImage().bytes());
    folder.write(dwarf + "/.DS_Store", std::string(16, '\0'));
    EXPECT_EQ(folder.bundle()->executablePath(), path);
    EXPECT_EQ(folder.bundle()->executableURL(), platform::URL::fileURLWithPath(path));
    std::string pairs;
    const auto addPair = [&](const auto& uuid, const auto& name) {
        pairs += name + " " + *uuid + "\n";
    };
    folder.bundle()->enumerateUUIDs(addPair);
    EXPECT_EQ(pairs, "arm64 " + std::string(32, '1') + "\narmv7 " + std::string(32, '2') + "\n");

    folder.write(dwarf + "/a/sub-folder", fuzz::MachOImage().bytes());
    const auto bundle = folder.bundle();
    EXPECT_TRUE(bundle && !bundle->executablePath() && !bundle->executableURL());
    bundle->enumerateUUIDs([](const auto&, const auto&) { ADD_FAILURE(); });
}

} // namespace
