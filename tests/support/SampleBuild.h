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

    /// The settings; change them before a run.
    std::map<std::string, std::string> environment;
    /// The tool under test and its arguments.
    std::string tool;
    std::vector<std::string> arguments = {std::string(40, 'k')};
    std::string workingDirectory;

    const TemporaryFolder& folder() const { return _folder; }
    std::string infoPlistPath() const;
    std::string dSYMPath() const;

    /// Replaces the app's Info.plist by an XML property list with `members` inside its dictionary.
    void writeInfoPlist(std::string_view members) const;

    /// What starts the tool under test with the arguments and environment of this build.
    Launch launch() const;
    /// The same with a parent process of the given command name for each of `parents`, the outermost first.
    Launch launchBelow(const std::vector<std::string>& parents) const;

private:
    TemporaryFolder _folder;
};

/// Standard error of a run without the header of each record: what a user reads.
std::string messages(const std::string& standardError);

} // namespace support
