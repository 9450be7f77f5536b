#include "platform/urlloading/linux/HTTPChallenge.h"
#include "platform/urlloading/linux/HTTPHeadParser.h"
#include "platform/urlloading/linux/StallDetector.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

using namespace std::chrono_literals;

TEST(HTTPHeadParser, ReadsStatusAndFields) {
    const struct {
        const char* name;
        std::vector<std::string> lines;
        unsigned statusCode;
        HTTPHeaders fields;
    } cases[] = {
        {"blanks around the value", {"HTTP/1.1 404 Not Found", "A:  1 \t"}, 404, {{"A", "1"}}},
        {"an empty value", {"HTTP/2 200", "A:"}, 200, {{"A", ""}}},
        {"folded by blank and tab", {"HTTP/2 200", "A: 1", " 2", "\t3 "}, 200, {{"A", "1 2 3"}}},
        {"UTF-8 and ISO 8859-1",
         {"HTTP/2 200", "A: \u00e9", "B: \xe9"},
         200,
         {{"A", "\u00e9"}, {"B", "\u00e9"}}},
        {"a line without colon", {"HTTP/1.1", "A: 1", "broken"}, 0, {{"A", "1"}}},
    };
    for (const auto& [name, lines, statusCode, fields] : cases) {
        HTTPHeadParser parser;
        for (const std::string& line : lines)
            EXPECT_EQ(parser.addLine(line + "\r\n"), HTTPHeadParser::Result::incomplete) << name;
        EXPECT_EQ(parser.addLine("\r\n"), HTTPHeadParser::Result::headEnded) << name;
        EXPECT_EQ(parser.head().statusCode, statusCode) << name;
        EXPECT_EQ(parser.head().allHeaderFields, fields) << name;
    }
}

TEST(HTTPChallenge, IsTheFirstKnownScheme) {
    using Method = URLProtectionSpace::Method;
    const std::pair<const char*, std::optional<Method>> cases[] = {
        {"Basic realm=\"x\"", Method::basic},
        {"Bearer realm=\"a, b\", digest realm=x", Method::digest},
        {"Bearer realm=\"a \\\", basic b\",NTLM", Method::ntlm},
        {"Bearer realm=\"a, basic b\", basic=1", std::nullopt},
        {"Bearer x, negotiate", Method::negotiate},
        {"", std::nullopt},
        {"\"unbalanced, Basic", std::nullopt},
    };
    for (const auto& [header, method] : cases)
        EXPECT_EQ(challengeMethod({401, {{"WWW-Authenticate", header}}}), method) << header;
}

TEST(StallDetector, CountsTimeWithoutProgressWhileItIsPolled) {
    const StallDetector::Clock::time_point start{};
    StallDetector detector(2s, start);
    EXPECT_FALSE(detector.recordProgress(start + 1s, 0, 0));
    EXPECT_FALSE(detector.recordProgress(start + 1500ms, 0, 7)) << "bytes moved";
    EXPECT_FALSE(detector.recordProgress(start + 2500ms, 1, 7)) << "next phase";
    EXPECT_FALSE(detector.isDue(start + 2600ms));
    EXPECT_TRUE(detector.isDue(start + 2750ms));
    EXPECT_FALSE(detector.recordProgress(start + 3s, 1, 7));
    EXPECT_FALSE(detector.recordProgress(start + 100s, 1, 7)) << "the polling thread was delayed";
    EXPECT_FALSE(detector.recordProgress(start + 101s, 1, 7));
    EXPECT_TRUE(detector.recordProgress(start + 102s, 1, 7));
}

} // namespace
} // namespace platform
