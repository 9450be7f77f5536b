#pragma once

#include "TWLWebClient/TWLWebClient.h"
#include "platform/dispatch/RunLoop.h"
#include "support/EnvironmentVariable.h"

#include <gmock/gmock.h>

#include <thread>

using ErrorMatcher = testing::Matcher<std::string>;

/// Exchanges on both roads. The parameter tells whether the road is the asynchronous one.
class Exchange : public testing::TestWithParam<bool> {
protected:
    static bool isAsynchronous() { return GetParam(); }

    /// Sends `request` and waits for its response and for the end of its connection.
    static std::shared_ptr<TWLWebResponse> exchange(const std::string& url,
                                                    const std::shared_ptr<TWLWebRequest>& request,
                                                    std::optional<std::uint64_t> expected = std::nullopt) {
        TWLWebClient client(*platform::URL::parse(url));
        std::shared_ptr<TWLWebResponse> result;
        const auto take = [&](const std::shared_ptr<TWLWebResponse>& response) {
            EXPECT_FALSE(result) << "a second callback";
            result = response;
            platform::RunLoop::mainRunLoop().stop();
        };
        if (isAsynchronous())
            expected ? client.startRequest(request, *expected, take) : client.startRequest(request, take);
        else
            expected ? client.syncStartRequest(request, *expected, take)
                     : client.syncStartRequest(request, take);
        EXPECT_TRUE(platform::RunLoop::mainRunLoop().run(std::chrono::seconds(60)));
        while (!client.connections().empty())
            std::this_thread::yield();
        return result;
    }
    static std::shared_ptr<TWLWebResponse> get(const std::string& url) {
        return exchange(url, TWLWebRequest::requestWithMethod("GET", ""));
    }

private:
    /// The environment may name a proxy, but the servers are on this machine.
    const support::EnvironmentVariable _noProxy{"no_proxy", "127.0.0.1"};
};

/// Runs the tests of the fixture `Suite` on both roads.
#define INSTANTIATE_BOTH_ROADS(Suite)                                                                        \
    INSTANTIATE_TEST_SUITE_P(Both, Suite, testing::Bool(), [](const auto& tested) {                          \
        return tested.param ? "Asynchronous" : "Synchronous";                                                \
    })

/// Empty without an error.
inline std::string errorOf(const TWLWebResponse& response) {
    return response.error() ? response.error()->description() : "";
}

/// An error of the transport whose description contains `text`.
inline ErrorMatcher failure(platform::URLErrorCode code, const std::string& text = "") {
    const std::string number = std::to_string(static_cast<std::int64_t>(code));
    return testing::AllOf(testing::StartsWith("Error Domain=NSURLErrorDomain Code=" + number + " \""),
                          testing::HasSubstr(text), testing::EndsWith(".\""));
}

inline constexpr const char* challenge = "Error Domain=TWLWebClientErrorDomain Code=-2";
