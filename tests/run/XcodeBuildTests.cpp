#include "platform/Files.h"
#include "platform/PropertyList.h"
#include "support/HTTPServer.h"
#include "support/SampleBuild.h"
#include "support/Shell.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace orvane {
namespace {

using platform::Value;
using testing::HasSubstr;

constexpr const char* failedEnvironment = "\n\nOrvane: Failed to Detect Build Environment\n\n"
                                          "INFOPLIST_PATH value not found in environment\n";

/// The sample app as a real toolchain makes it, in the whole environment that Xcode gives a run-script phase.
class XcodeBuild : public testing::Test {
protected:
    static void SetUpTestSuite() {
        sample = std::make_unique<support::TemporaryFolder>();
        support::outputOf(std::string(ORVANE_SAMPLE) + "/make-app '" + sample->path("app folder") + "'");
    }
    static void TearDownTestSuite() { sample.reset(); }

    XcodeBuild()
        : server([this](const support::HTTPRequest& request) {
              targets.push_back(request.target);
              return support::HTTPAnswer();
          }) {}

    support::Launch launch(const std::string& kind) const {
        support::Launch launch = {.arguments = {support::SampleBuild().tool, std::string(40, 'k')},
                                  .environment = {"ORVANE_TEST_API_ENDPOINT=" + server.url(""),
                                                  "ORVANE_TEST_SYMBOLS_ENDPOINT=" + server.url("")},
                                  .workingDirectory = sample->path("app folder/Sample Project"),
                                  .standardErrorPath = {}};
        std::istringstream settings(support::outputOf(std::string(ORVANE_SAMPLE) + "/xcode-environment '" +
                                                      sample->path("app folder") + "' " + kind));
        for (std::string entry; std::getline(settings, entry, '\0');)
            launch.environment.push_back(entry);
        EXPECT_GT(launch.environment.size(), 300u);
        return launch;
    }

    static std::unique_ptr<support::TemporaryFolder> sample;
    std::vector<std::string> targets;
    support::HTTPServer server;
};

std::unique_ptr<support::TemporaryFolder> XcodeBuild::sample;

TEST_F(XcodeBuild, OfEachKindTakesTheDirectRoad) {
    for (const char* kind : {"device", "simulator", "archive"}) {
        targets.clear();
        const support::Ending ending = run(launch(kind));
        EXPECT_EQ(ending.status, 0) << kind << ending.standardError;
        EXPECT_THAT(support::messages(ending.standardError), HasSubstr(" Slice:arm64\n"));
        EXPECT_THAT(targets, testing::ElementsAre("/spi/v1/platforms/ios/apps/com.example.sample-app/built",
                                                  "/api/v3/platforms/ios/code_mappings"));
    }
    EXPECT_THAT(support::messages(run(launch("pod")).standardError), testing::EndsWith(failedEnvironment));
}

TEST_F(XcodeBuild, IsDescribedWholeToTheCompanion) {
    const std::string desktop = sample->path("desktop");
    support::outputOf(std::string(ORVANE_REGISTER_COMPANION) + " '" + desktop + "' " ORVANE_COMPANION " 203");
    support::Launch build = launch("archive");
    build.environment.insert(build.environment.begin(),
                             {"XDG_DATA_HOME=" + desktop, "XDG_CACHE_HOME=" + sample->path("caches")});
    EXPECT_EQ(run(build).status, 0);

    const auto description = platform::readDictionary(
        support::outputOf("find '" + sample->path("caches") + "' -name Build.plist -printf %p"));
    ASSERT_TRUE(description);
    EXPECT_EQ(platform::objectForKey(*description, "CFBundleVersion"), Value("214"));
    EXPECT_EQ(platform::objectForKey(*description, "PROVISIONING_PROFILE"),
              Value("01234567-89ab-cdef-0123-456789abcdef"));
    const auto* environment =
        platform::find<Value::Dictionary>(*description, "Runner_Environment_Dictionary");
    ASSERT_TRUE(environment);
    for (auto entry = build.environment.rbegin(); entry != build.environment.rend(); ++entry) {
        const std::string name = entry->substr(0, entry->find('='));
        const auto first =
            std::find_if(build.environment.begin(), build.environment.end(),
                         [&](const std::string& other) { return other.starts_with(name + "="); });
        EXPECT_EQ(platform::objectForKey(*environment, name), Value(first->substr(name.size() + 1)));
    }
}

} // namespace
} // namespace orvane
