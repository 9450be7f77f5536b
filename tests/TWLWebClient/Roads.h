#pragma once

#include "TWLWebClient/TWLWebClient.h"
#include "platform/RunLoop.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>

/// The two roads of an exchange, so that one test can take both.
enum class Road { synchronous, asynchronous };

inline std::string nameOf(const testing::TestParamInfo<Road>& info) {
    return info.param == Road::synchronous ? "Synchronous" : "Asynchronous";
}

/// Sends `request` and waits for its response. The callback must come exactly once.
inline std::shared_ptr<TWLWebResponse> send(Road road, TWLWebClient& client,
                                            const std::shared_ptr<TWLWebRequest>& request) {
    std::shared_ptr<TWLWebResponse> result;
    int calls = 0;
    const auto take = [&](const std::shared_ptr<TWLWebResponse>& response) {
        result = response;
        ++calls;
        platform::RunLoop::mainRunLoop().stop();
    };
    if (road == Road::synchronous)
        client.syncStartRequest(request, take);
    else
        client.startRequest(request, take);
    EXPECT_TRUE(platform::RunLoop::mainRunLoop().run(std::chrono::seconds(60)));
    EXPECT_EQ(calls, 1);
    return result;
}

/// The description of a response's error; empty without one.
inline std::string reasonOf(const TWLWebResponse& response) {
    if (!response.error())
        return "";
    const auto* text =
        platform::find<std::string>(response.error()->userInfo, platform::localizedDescriptionKey);
    return text ? *text : "";
}
