#include "platform/foundation/Format.h"
#include "platform/foundation/URL.h"
#include "platform/foundation/UTF8.h"
#include "platform/foundation/Value.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

TEST(BooleanValue, IsReadAsByAppleFrameworks) {
    for (const char* yes :
         {"YES", "yes", "true", "T", "1", "  1", "+1", "-007", "0009", "\t\nY", "Yeti", "00T"})
        EXPECT_TRUE(booleanValue(yes)) << yes;
    for (const char* no : {"", "NO", "0", "000", "false", "on", "+", "  ", "-0", "0x1"})
        EXPECT_FALSE(booleanValue(no)) << no;
    EXPECT_TRUE(booleanValue(2));
    EXPECT_FALSE(booleanValue(Value::Array{1}));
}

TEST(IntegerValue, ReadsLeadingDigitsWithinTheRange) {
    EXPECT_EQ(integerValue(" \t203.5"), 203);
    EXPECT_EQ(integerValue("-4x"), -4);
    EXPECT_EQ(integerValue("99999999999999999999"), 2147483647);
    EXPECT_EQ(integerValue("-99999999999"), -2147483648);
}

TEST(Format, InsertsArgumentsWithoutReadingThemAsFormats) {
    EXPECT_EQ(format("%@ uploaded 100%% statusCode %i\n%@", "a%@b", 201, std::optional<std::string>()),
              "a%@b uploaded 100% statusCode 201\n(null)");
    EXPECT_EQ(format("%@", Value(Value::Dictionary{{"b", Value::Array{1, nullptr}}, {"a", Data("hi")}})),
              R"({"a" = {length = 2, bytes = 0x6869}, "b" = (1, (null))})");
}

TEST(UTF8, CountsCharactersAndRefusesInvalidBytes) {
    EXPECT_EQ(characterCount("a\u00e9\u20ac\U0001F600"), 4u);
    for (const char* bad :
         {"\x80", "\xC0\xAF", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "a\xE2\x82"})
        EXPECT_FALSE(decodeUTF8(bad)) << bad;
}

TEST(URL, ResolvesReferencesAsRFC3986Does) {
    const URL base = *URL::parse("http://a/b/c/d;p?q");
    const std::pair<const char*, const char*> cases[] = {{"../../../g", "http://a/g"},
                                                         {"g/../h?y/./x", "http://a/b/c/h?y/./x"},
                                                         {"?y", "http://a/b/c/d;p?y"},
                                                         {"//g", "http://g"},
                                                         {"#s", "http://a/b/c/d;p?q#s"}};
    for (const auto& [reference, resolved] : cases)
        EXPECT_EQ(URL::parse(reference, base)->absoluteString(), resolved) << reference;
}

TEST(URL, ParsesComponentsAndRefusesInvalidText) {
    const URL url = *URL::parse("HTTPS://user@[::1]:8149/a%20b?x=%31#f");
    EXPECT_EQ(url.scheme() + "|" + url.host() + "|" + url.path(), "https|[::1]|/a b");
    EXPECT_TRUE(url.port() == 8149 && url.query() == "x=%31");
    EXPECT_EQ(URL::parse("a1+B-c.d:e")->scheme(), "a1+b-c.d");
    for (const char* relative : {"a_b:c", "a/b:c"})
        EXPECT_EQ(URL::parse(relative)->scheme(), "") << relative;
    for (const char* bad :
         {"", "a b", "http://h/\u00e9", "%zz", "%4", "http://h:65536/", "http://h:x/", "a<b", "a\nb"})
        EXPECT_FALSE(URL::parse(bad)) << bad;
    const URL file = URL::fileURLWithPath("/a b/\u00e9%.app");
    EXPECT_EQ(file.absoluteString() + file.path(), "file:///a%20b/%C3%A9%25.app/a b/\u00e9%.app");
}

} // namespace
} // namespace platform
