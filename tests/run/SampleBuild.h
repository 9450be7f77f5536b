#pragma once

#include "run/VendorConfiguration.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

/// The service of the tool under test by default: port 9 of this machine, where no server listens.
inline constexpr const char* nobodyListens = "http://127.0.0.1:9";

/// A finished build of an app, as Xcode leaves it when its run-script phase starts, in its own folder. It
/// has the environment of that phase and a desktop without registered applications.
class SampleBuild {
public:
    SampleBuild();

    const support::TemporaryFolder folder;
    const std::string products = folder.path("DerivedData/Build/Products/Release-iphoneos");
    const std::string infoPlist = products + "/Sample App.app/Info.plist";
    const std::string dSYM = products + "/Sample App.app.dSYM";
    /// The settings. Change them before a run.
    std::map<std::string, std::string> environment;
    /// The tool under test and its arguments.
    std::string tool;
    std::vector<std::string> arguments = {std::string(40, 'k')};
    std::string workingDirectory = folder.makeFolder("Sample Project");

    /// Uses the complete environment of this kind of build (sample/xcode-environment).
    void setKind(const std::string& kind);
    void writeProduct(std::string_view name, std::string_view bytes) const {
        folder.write("DerivedData/Build/Products/Release-iphoneos/" + std::string(name), bytes);
    }
    /// Replaces the app's Info.plist by an XML property list whose dictionary contains `members`.
    void writeInfoPlist(const std::string& members) const {
        writeProduct("Sample App.app/Info.plist",
                     "<plist version=\"1.0\"><dict>" + members + "</dict></plist>");
    }

    /// Starts the tool under test with this build's arguments and environment, through `starter` (a program
    /// and its arguments) if it is not empty.
    support::Launch launch(const std::vector<std::string>& starter = {}) const;
    /// The same with a parent process for each command name in `parents`, the outermost first.
    support::Launch launchBelow(const std::vector<std::string>& parents) const;
};

inline const std::string versionLine = "Orvane.framework/run " + toolVersion() + "\n";

/// The first record of a run on the direct road if no service listens.
inline const std::string unanswered = "\n\nOrvane: Could not be onboarded statusCode 0 ";

/// A record of TWLLog, without the header. The log adds a line break only if the message has none at its end.
inline std::string record(const std::string& message) {
    return "\n\nOrvane: " + message + (message.ends_with('\n') ? "" : "\n");
}

/// The command that starts the tool under test, from ORVANE_TOOL_RUNNER; usually empty.
std::string toolRunner();

/// Runs the tool, which must exit with `status`. Returns the standard error without the header of each
/// record.
std::string printed(const support::Launch& launch, int status);
inline std::string printed(const SampleBuild& build, int status) {
    return printed(build.launch(), status);
}

} // namespace orvane
