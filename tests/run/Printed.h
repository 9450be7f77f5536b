#pragma once

#include "support/SampleBuild.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane {

inline const std::string versionLine = "Orvane.framework/run 1.3.17\n";

/// The first record of a run on the direct road if no service listens.
inline const std::string unanswered = "\n\nOrvane: Could not be onboarded statusCode 0 ";

/// A record of TWLLog, without the header.
inline std::string record(const std::string& message) {
    return "\n\nOrvane: " + message + "\n";
}

/// The standard error of a run, without the header of each record.
inline std::string messages(std::string standardError) {
    constexpr std::size_t dateSize = sizeof "2014-03-10 12:34:56.789" - 1;
    for (std::size_t name = 0; (name = standardError.find(" run[")) != std::string::npos;) {
        const std::size_t start = name - dateSize, size = standardError.find("] ", name) + 2 - start;
        EXPECT_THAT(standardError.substr(start, size),
                    testing::MatchesRegex(R"([-0-9]{10} [0-9:]{8}\.[0-9]{3} run\[[0-9]+:[0-9]+\] )"));
        standardError.erase(start, size);
    }
    return standardError;
}

/// Runs the tool, which must exit with `status`, and returns the messages.
inline std::string printed(const support::Launch& launch, int status) {
    const support::Ending ending = support::run(launch);
    EXPECT_EQ(ending.status, status) << ending.standardError;
    EXPECT_EQ(ending.standardOutput, "");
    return messages(ending.standardError);
}
inline std::string printed(const support::SampleBuild& build, int status) {
    return printed(build.launch(), status);
}

} // namespace orvane
