#pragma once

#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// Where the end-to-end build of the tool finds its service: port 9 of this machine answers nobody.
inline constexpr const char* nobodyListens = "http://127.0.0.1:9";

/// A finished build of an app as Xcode leaves it when its run-script phase starts, in a folder of its own,
/// with the environment of that phase and a desktop on which no application is registered.
class SampleBuild {
public:
    SampleBuild();

    const TemporaryFolder folder;
    const std::string products = folder.path("DerivedData/Build/Products/Release-iphoneos");
    const std::string infoPlist = products + "/Sample App.app/Info.plist";
    const std::string dSYM = products + "/Sample App.app.dSYM";
    /// The settings; change them before a run.
    std::map<std::string, std::string> environment;
    /// The tool under test and its arguments.
    std::string tool;
    std::vector<std::string> arguments = {std::string(40, 'k')};
    std::string workingDirectory = folder.makeFolder("Sample Project");

    /// Takes the whole environment of a build of this kind (sample/xcode-environment).
    void setKind(const std::string& kind);
    void writeProduct(std::string_view name, std::string_view bytes) const;
    /// Replaces the app's Info.plist by an XML property list with `members` inside its dictionary.
    void writeInfoPlist(const std::string& members) const;

    /// What starts the tool under test with the arguments and environment of this build, through the program
    /// and arguments of `starter` when they are given.
    Launch launch(const std::vector<std::string>& starter = {}) const;
    /// The same with a parent process of the given command name for each of `parents`, the outermost first.
    Launch launchBelow(const std::vector<std::string>& parents) const;
};

} // namespace support
