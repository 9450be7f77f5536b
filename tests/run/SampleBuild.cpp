#include "SampleBuild.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace orvane {

SampleBuild::SampleBuild() {
    // The environment may name another tool, for example the portable one.
    const char* const other = std::getenv("ORVANE_RUN_UNDER_TEST");
    tool = other ? other : ORVANE_RUN_UNDER_TEST;
    setKind("device");
    std::filesystem::create_directories(dSYM);
    writeInfoPlist("<key>CFBundleIdentifier</key><string>com.example.sample</string>"
                   "<key>CFBundleDisplayName</key><string>Sample</string>"
                   "<key>CFBundleName</key><string>Sample App</string>"
                   "<key>CFBundleVersion</key><string>17</string>"
                   "<key>CFBundleShortVersionString</key><string>1.2</string>");
}

void SampleBuild::setKind(const std::string& kind) {
    std::istringstream entries(
        support::outputOf(ORVANE_SAMPLE "/xcode-environment '" + folder.path() + "' " + kind));
    environment = {{"XDG_DATA_DIRS", "/none"},
                   {"ORVANE_TEST_API_ENDPOINT", nobodyListens},
                   {"ORVANE_TEST_SYMBOLS_ENDPOINT", nobodyListens}};
    for (std::string entry; std::getline(entries, entry, '\0');) // of two of a name the first counts
        environment.emplace(entry.substr(0, entry.find('=')), entry.substr(entry.find('=') + 1));
    EXPECT_GT(environment.size(), 300u);
}

support::Launch SampleBuild::launch(const std::vector<std::string>& starter) const {
    support::Launch launch = {.arguments = starter, .workingDirectory = workingDirectory};
    // A tool for another system needs a command that runs it. Its words are separated by blanks.
    std::istringstream runner(toolRunner());
    for (std::string word; runner >> word;)
        launch.arguments.push_back(word);
    launch.arguments.push_back(tool);
    launch.arguments.insert(launch.arguments.end(), arguments.begin(), arguments.end());
    for (const auto& [name, value] : environment)
        launch.environment.push_back(std::string(name).append("=").append(value));
    return launch;
}

support::Launch SampleBuild::launchBelow(const std::vector<std::string>& parents) const {
    std::vector<std::string> starter;
    for (const std::string& name : parents) {
        // The kernel names a process after its program's file. This is a copy of the shell; it does not
        // replace itself by its child, because another command follows.
        const std::string program = folder.makeFolder("parents") + "/" + name;
        std::filesystem::copy_file("/bin/sh", program, std::filesystem::copy_options::skip_existing);
        starter.insert(starter.end(), {program, "-c", "\"$@\"; exit $?", "sh"});
    }
    return launch(starter);
}

std::string toolRunner() {
    const char* const runner = std::getenv("ORVANE_TOOL_RUNNER");
    return runner ? runner : "";
}

std::string printed(const support::Launch& launch, int status) {
    const support::Ending ending = support::run(launch);
    EXPECT_EQ(ending.status, status) << ending.standardError;
    EXPECT_EQ(ending.standardOutput, "");
    std::string messages = ending.standardError;
    if (!toolRunner().empty()) // which may print something before the tool does
        messages.erase(0, messages.find("\n20") + 1);
    constexpr std::size_t dateSize = sizeof "2014-03-10 12:34:56.789" - 1;
    for (std::size_t name = 0; (name = messages.find(" run[")) != std::string::npos;) {
        const std::size_t start = name - dateSize, size = messages.find("] ", name) + 2 - start;
        EXPECT_THAT(messages.substr(start, size),
                    testing::MatchesRegex(R"([-0-9]{10} [0-9:]{8}\.[0-9]{3} run\[[0-9]+:[0-9]+\] )"));
        messages.erase(start, size);
    }
    return messages;
}

} // namespace orvane
