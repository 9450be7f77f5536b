#include "platform/foundation/URL.h"
#include "support/ChildProcess.h"

#include <gmock/gmock.h>

namespace orvane {
namespace {

enum class Verdict { accepted, acceptedWithWarning, refused };

/// How the configuration of a build judges this value.
Verdict verdictOn(const std::string& variable, const std::string& value) {
    const support::Ending ending = support::run(
        {.arguments = {ORVANE_CMAKE, "-D" + variable + "=" + value, "-P", ORVANE_VENDOR_CONFIGURATION}});
    if (ending.status != 0) {
        EXPECT_THAT(ending.standardError, testing::HasSubstr(variable + " is"));
        return Verdict::refused;
    }
    return ending.standardError.empty() ? Verdict::accepted : Verdict::acceptedWithWarning;
}

TEST(VendorConfiguration, AcceptsOnlyAddressesThatTheToolCanUse) {
    const auto accepted = Verdict::accepted, warned = Verdict::acceptedWithWarning,
               refused = Verdict::refused;
    const struct {
        const char* value;
        Verdict asEndpoint;
        Verdict asPage;
    } cases[] = {
        {"https://api.vendor.example", accepted, accepted},
        {"https://api-2.vendor.example:8443/", accepted, accepted},
        {"https://[2001:db8::1]:65535", accepted, accepted},
        {"http://api.vendor.example", warned, accepted},
        {"http://127.evil.example", warned, accepted},
        {"http://127.0.0.1:8149", accepted, accepted},
        {"http://[::1]", accepted, accepted},
        {"http://localhost:80", accepted, accepted},
        {"https://vendor.example/a%20b;c?d=(e)&f#g", refused, accepted},
        {"https://vendor.example?x", refused, accepted},
        {"http://127.0.0.1:99999", refused, refused},
        {"http://127.0.0.1:65536", refused, refused},
        {"https://h:100000000000000000000", refused, refused},
        {"https://h:", refused, refused},
        {"https://h:x", refused, refused},
        {"https://user@h", refused, refused},
        {"https://h/%zz", refused, refused},
        {"https://h/%4", refused, refused},
        {"https://h/a b", refused, refused},
        {"https://h/\u00e9", refused, refused},
        {"https://h/\"", refused, refused},
        {"https://h/\\", refused, refused},
        {"https://h/\nx", refused, refused},
        {"https://", refused, refused},
        {"ftp://h", refused, refused},
        {"not a url", refused, refused},
        {"", refused, refused},
    };
    for (const auto& [value, asEndpoint, asPage] : cases) {
        SCOPED_TRACE(value);
        EXPECT_EQ(verdictOn("TARNWHISTLE_API_ENDPOINT", value), asEndpoint);
        EXPECT_EQ(verdictOn("TARNWHISTLE_SYMBOLS_ENDPOINT", value), asEndpoint);
        EXPECT_EQ(verdictOn("TARNWHISTLE_SIGN_UP_URL", value), asPage);
        EXPECT_TRUE(asPage == refused || platform::URL::parse(value));
    }
}

TEST(VendorConfiguration, RequiresAReverseDNSName) {
    for (const char* good : {"com.tarnwhistle", "org.Vendor-2.tools"})
        EXPECT_EQ(verdictOn("TARNWHISTLE_REVERSE_DNS", good), Verdict::accepted) << good;
    for (const char* bad : {"", "com", "a b", "com.", ".com", "com..vendor", "com/vendor.x", "com.\"x\""})
        EXPECT_EQ(verdictOn("TARNWHISTLE_REVERSE_DNS", bad), Verdict::refused) << bad;
}

} // namespace
} // namespace orvane
