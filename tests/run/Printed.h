#pragma once

#include "support/SampleBuild.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace orvane {

inline constexpr const char* versionLine = "Orvane.framework/run 1.3.17\n";

/// How a run begins that has passed every check and takes the direct road, where nobody answers it.
inline constexpr const char* unanswered = "\n\nOrvane: Could not be onboarded statusCode 0 ";

/// A record of the tool's own as the log shows it, without its header.
inline std::string record(const std::string& message) {
    return "\n\nOrvane: " + message + "\n";
}

/// What a run prints that must end with `status`.
inline std::string printed(const support::Launch& launch, int status) {
    const support::Ending ending = support::run(launch);
    EXPECT_EQ(ending.status, status) << ending.standardError;
    EXPECT_EQ(ending.standardOutput, "");
    return support::messages(ending.standardError);
}
inline std::string printed(const support::SampleBuild& build, int status) {
    return printed(build.launch(), status);
}

/// The whole environment of a run-script phase for the sample app in `folder` (sample/xcode-environment).
inline std::map<std::string, std::string> xcodeEnvironment(const std::string& folder,
                                                           const std::string& kind) {
    std::istringstream entries(
        support::outputOf(ORVANE_SAMPLE "/xcode-environment '" + folder + "' " + kind));
    std::map<std::string, std::string> environment;
    for (std::string entry; std::getline(entries, entry, '\0');)
        environment.emplace(entry.substr(0, entry.find('=')), entry.substr(entry.find('=') + 1));
    EXPECT_GT(environment.size(), 300u);
    return environment;
}

} // namespace orvane
