#include "platform/foundation/URL.h"
#include "support/ChildProcess.h"

#include <gmock/gmock.h>

namespace orvane {
namespace {

/// How the configuration of a build judges this value: "accepted", "warning" or "refused".
std::string verdictOn(const std::string& variable, const std::string& value) {
    const support::Ending ending = support::run(
        {.arguments = {ORVANE_CMAKE, "-D" + variable + "=" + value, "-P", ORVANE_VENDOR_CONFIGURATION}});
    if (ending.status != 0) {
        EXPECT_THAT(ending.standardError, testing::HasSubstr(variable + " is"));
        return "refused";
    }
    return ending.standardError.empty() ? "accepted" : "warning";
}

TEST(VendorConfiguration, AcceptsOnlyAddressesThatTheToolCanUse) {
    const struct {
        const char *asEndpoint, *asPage;
        std::vector<const char*> values;
    } cases[] = {
        {"accepted",
         "accepted",
         {"https://api.vendor.example", "https://api-2.vendor.example:8443/", "https://[2001:db8::1]:65535",
          "http://127.0.0.1:8149", "http://[::1]", "http://localhost:80"}},
        {"warning", "accepted", {"http://api.vendor.example", "http://127.evil.example"}},
        {"refused", "accepted", {"https://vendor.example/a%20b;c?d=(e)&f#g", "https://vendor.example?x"}},
        {"refused",
         "refused",
         {"http://127.0.0.1:65536", "https://h:100000000000000000000", "https://h:", "https://h:x",
          "https://user@h", "https://h/%zz", "https://h/%4", "https://h/a b", "https://h/\u00e9",
          "https://h/\"", "https://h/\\", "https://h/\nx", "https://", "ftp://h", "not a url", ""}}};
    for (const auto& [asEndpoint, asPage, values] : cases)
        for (const std::string value : values) {
            SCOPED_TRACE(value);
            EXPECT_EQ(verdictOn("TARNWHISTLE_API_ENDPOINT", value), asEndpoint);
            EXPECT_EQ(verdictOn("TARNWHISTLE_SYMBOLS_ENDPOINT", value), asEndpoint);
            EXPECT_EQ(verdictOn("TARNWHISTLE_SIGN_UP_URL", value), asPage);
            EXPECT_TRUE(asPage == std::string("refused") || platform::URL::parse(value));
        }
}

TEST(VendorConfiguration, RequiresAReverseDNSName) {
    for (const char* good : {"com.tarnwhistle", "org.Vendor-2.tools"})
        EXPECT_EQ(verdictOn("TARNWHISTLE_REVERSE_DNS", good), "accepted") << good;
    for (const char* bad : {"", "com", "a b", "com.", ".com", "com..vendor", "com/vendor.x", "com.\"x\""})
        EXPECT_EQ(verdictOn("TARNWHISTLE_REVERSE_DNS", bad), "refused") << bad;
}

} // namespace
} // namespace orvane
