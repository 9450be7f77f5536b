#include "support/SampleBuild.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

namespace orvane {
namespace {

using support::SampleBuild;

constexpr const char* versionLine = "Orvane.framework/run 1.3.17\n";

/// What a build that passes every check goes on to say: nobody answers the registration.
constexpr const char* passed = "\n\nOrvane: Could not be onboarded statusCode 0";

std::string failure(const std::string& title, const std::string& reason) {
    return versionLine + ("\n\nOrvane: " + title + "\n\n" + reason) + "\n";
}

struct Check {
    const char* name;
    std::function<void(SampleBuild&)> spoil;
    std::function<std::string(const SampleBuild&)> expected;

    friend void PrintTo(const Check& check, std::ostream* out) { *out << check.name; }
};

std::function<std::string(const SampleBuild&)> missingSetting(const std::string& key) {
    return [key](const SampleBuild&) {
        return failure("Failed to Detect Build Environment", key + " value not found in environment");
    };
}

std::string noIdentifier(const SampleBuild& build) {
    return failure("Required Info.plist Value Not Found",
                   "A CFBundleIdentifier value in your Info.plist is required. Please confirm this value is "
                   "present in " +
                       build.infoPlistPath() + " \n\n");
}

std::string wrongFolder(const SampleBuild&) {
    return failure("Use a Target Run Script Build Phase",
                   "Make sure the Orvane command is added to your project Target and not the scheme "
                   "'Post-actions'.\n\nThen, Build your project to continue.\n\n(Tarnwhistle error 602)");
}

/// Takes what makes the bytes: every test of the table would hold the bytes themselves.
std::function<void(SampleBuild&)> infoPlist(std::string (*bytes)()) {
    return [bytes](const SampleBuild& build) {
        const auto path = std::filesystem::relative(build.infoPlistPath(), build.folder().path());
        build.folder().write(path.string(), bytes());
    };
}

std::string nested(std::size_t depth) {
    std::string text = "<plist version=\"1.0\">";
    for (std::size_t i = 0; i < depth; ++i)
        text += "<array>";
    for (std::size_t i = 0; i < depth; ++i)
        text += "</array>";
    return text + "</plist>";
}

class FailedCheck : public testing::TestWithParam<Check> {};

TEST_P(FailedCheck, EndsTheRunWithItsTitleAndReason) {
    SampleBuild build;
    GetParam().spoil(build);
    const support::Ending ending = support::run(build.launch());
    EXPECT_EQ(ending.status, 1);
    EXPECT_EQ(support::messages(ending.standardError), GetParam().expected(build));
    EXPECT_EQ(ending.standardOutput, "");
}

const Check checks[] = {
    {"EmptyProductsFolder", [](SampleBuild& b) { b.environment["BUILT_PRODUCTS_DIR"] = ""; },
     missingSetting("BUILT_PRODUCTS_DIR")},
    {"FirstOfTwoMissing",
     [](SampleBuild& b) {
         b.environment.erase("DWARF_DSYM_FILE_NAME");
         b.environment.erase("INFOPLIST_PATH");
     },
     missingSetting("INFOPLIST_PATH")},
    {"NoDSYMName", [](SampleBuild& b) { b.environment.erase("DWARF_DSYM_FILE_NAME"); },
     missingSetting("DWARF_DSYM_FILE_NAME")},
    {"NoDSYMFolder", [](SampleBuild& b) { b.environment.erase("DWARF_DSYM_FOLDER_PATH"); },
     missingSetting("DWARF_DSYM_FOLDER_PATH")},
    {"NoInfoPlist",
     [](SampleBuild& b) {
         b.environment.erase("WRAPPER_NAME");
         std::filesystem::remove(b.infoPlistPath());
     },
     [](const SampleBuild& b) {
         return failure(
             "Info.plist Error",
             "Unable to process Info.plist at path " + b.infoPlistPath() +
                 "\nThis could be a timing issue, make sure the Orvane run script build phase is the "
                 "last build phase and no other scripts have moved (null) from the location Xcode "
                 "generated it.");
     }},
    {"NoDSYM", [](SampleBuild& b) { std::filesystem::remove_all(b.dSYMPath()); },
     [](const SampleBuild& b) {
         return failure(
             "dSYM Error",
             "Unable to process Sample App.app.dSYM at path " + b.dSYMPath() +
                 "\nMake sure your project build settings are generating a dSYM file. "
                 "DEBUG_INFORMATION_FORMAT should be set to dwarf-with-dsym for all configurations. "
                 "This could also be a timing issue, make sure the Orvane run script build phase is "
                 "the last build phase and no other scripts have moved the dSYM from the location "
                 "Xcode generated it.\n\n");
     }},
    {"NoIdentifier", [](SampleBuild& b) { b.writeInfoPlist("<key>CFBundleName</key><string>x</string>"); },
     noIdentifier},
    {"EmptyIdentifier",
     [](SampleBuild& b) { b.writeInfoPlist("<key>CFBundleIdentifier</key><string></string>"); },
     noIdentifier},
    {"IdentifierIsNoText",
     [](SampleBuild& b) { b.writeInfoPlist("<key>CFBundleIdentifier</key><integer>7</integer>"); },
     noIdentifier},
    {"InfoPlistIsNoPropertyList", infoPlist([] { return std::string("CFBundleIdentifier = com.example"); }),
     noIdentifier},
    {"InfoPlistIsEmpty", infoPlist([] { return std::string(""); }), noIdentifier},
    {"InfoPlistIsTruncated",
     infoPlist([] { return std::string("<plist><dict><key>CFBundleIdentifier</key><string>com.exa"); }),
     noIdentifier},
    {"InfoPlistIsAnArray", infoPlist([] { return nested(1); }), noIdentifier},
    {"InfoPlistIsNestedTooDeep", infoPlist([] { return nested(100'000); }), noIdentifier},
    {"InfoPlistIsHuge", infoPlist([] { return std::string(100'000'000, ' '); }), noIdentifier},
    {"NoSourceRoot", [](SampleBuild& b) { b.environment.erase("SRCROOT"); }, wrongFolder},
    {"SourceRootWithTrailingSlash", [](SampleBuild& b) { b.environment["SRCROOT"] += "/"; }, wrongFolder},
    {"AnotherFolder", [](SampleBuild& b) { b.workingDirectory = b.folder().path(); }, wrongFolder},
};

INSTANTIATE_TEST_SUITE_P(All, FailedCheck, testing::ValuesIn(checks),
                         [](const auto& check) { return check.param.name; });

TEST(PassedChecks, TakeLinksOnEitherSideAndABinaryInfoPlist) {
    const std::function<void(SampleBuild&)> harmless[] = {
        [](SampleBuild& b) {
            std::filesystem::create_symlink(b.workingDirectory, b.folder().path("link"));
            b.environment["SRCROOT"] = b.folder().path("link");
        },
        [](SampleBuild& b) {
            std::filesystem::create_symlink(b.workingDirectory, b.folder().path("link"));
            b.workingDirectory = b.folder().path("link");
        },
        [](const SampleBuild& b) {
            ASSERT_EQ(
                0, std::system(("plistutil -f bin -i '" + b.infoPlistPath() + "' -o '" + b.infoPlistPath() +
                                ".bin' && mv '" + b.infoPlistPath() + ".bin' '" + b.infoPlistPath() + "'")
                                   .c_str()));
        },
        [](const SampleBuild& b) {
            std::filesystem::remove_all(b.dSYMPath());
            b.folder().write("Build/Products/Release-iphoneos/Sample App.app.dSYM",
                             "only its presence is checked");
        },
    };
    for (const auto& change : harmless) {
        SampleBuild build;
        change(build);
        EXPECT_THAT(support::messages(support::run(build.launch()).standardError),
                    testing::StartsWith(std::string(versionLine) + passed));
    }
}

} // namespace
} // namespace orvane
