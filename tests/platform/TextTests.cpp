#include "platform/Format.h"
#include "platform/URL.h"
#include "platform/UTF8.h"
#include "platform/Value.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

TEST(BooleanValue, ReadsWhatThePlatformReads) {
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
    EXPECT_EQ(integerValue("build 5"), 0);
    EXPECT_EQ(integerValue("99999999999999999999"), 2147483647);
    EXPECT_EQ(integerValue("-99999999999"), -2147483648);
    EXPECT_EQ(integerValue(203.9), 203);
    EXPECT_EQ(integerValue(nullptr), 0);
}

TEST(Format, PutsArgumentsInOrderAndNeverReadsThemAsFormats) {
    EXPECT_EQ(format("%@ uploaded statusCode %i\n%@", "a%@b", 201, std::optional<std::string>()),
              "a%@b uploaded statusCode 201\n(null)");
    EXPECT_EQ(format("%lu of 100%%, %d", 7u, -1), "7 of 100%, -1");
    EXPECT_EQ(format("%@", posixError(2, "open", "/x")),
              "Error Domain=NSPOSIXErrorDomain Code=2 \"open /x: No such file or directory\"");
    EXPECT_EQ(format("%@", Value(Value::Dictionary{{"b", Value::Array{1, nullptr}}, {"a", Data("hi")}})),
              R"({"a" = {length = 2, bytes = 0x6869}, "b" = (1, (null))})");
}

TEST(UTF8, CountsCharactersRefusesOtherBytesAndMakesThemFitForXML) {
    EXPECT_EQ(characterCount("a\u00e9\u20ac\U0001F600"), 4u);
    for (const char* bad :
         {"\x80", "\xC0\xAF", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "a\xE2\x82"})
        EXPECT_FALSE(decodeUTF8(bad)) << bad;
    EXPECT_EQ(textForXML(std::string_view("\t\u20ac\0b\x1b\xFF\xEF\xBF\xBF\xE2\x82", 12)),
              "\t\u20ac\uFFFDb\uFFFD\uFFFD\uFFFD\uFFFD");
}

TEST(URL, ResolvesReferencesAsRFC3986Does) {
    const URL base = *URL::parse("http://a/b/c/d;p?q");
    const auto resolved = [&](const char* reference) {
        return URL::parse(reference, base)->absoluteString();
    };
    EXPECT_EQ(resolved("g:h"), "g:h");
    EXPECT_EQ(resolved("//g"), "http://g");
    EXPECT_EQ(resolved("/g"), "http://a/g");
    EXPECT_EQ(resolved("../../../g"), "http://a/g");
    EXPECT_EQ(resolved("g/../h?y/./x"), "http://a/b/c/h?y/./x");
    EXPECT_EQ(resolved("?y"), "http://a/b/c/d;p?y");
    EXPECT_EQ(resolved("#s"), "http://a/b/c/d;p?q#s");
}

TEST(URL, TakesApartWhatItParsesAndRefusesTheRest) {
    const URL url = *URL::parse("HTTPS://user@[::1]:8149/a%20b?x=%31#f");
    EXPECT_EQ(url.scheme() + "|" + url.host() + "|" + url.path(), "https|[::1]|/a b");
    EXPECT_TRUE(url.port() == 8149 && url.query() == "x=%31");
    for (const char* bad :
         {"", "a b", "http://h/\u00e9", "%zz", "%4", "http://h:65536/", "http://h:x/", "a<b", "a\nb"})
        EXPECT_FALSE(URL::parse(bad)) << bad;
    const URL file = URL::fileURLWithPath("/a b/\u00e9%.app");
    EXPECT_EQ(file.absoluteString() + file.path(), "file:///a%20b/%C3%A9%25.app/a b/\u00e9%.app");
}

} // namespace
} // namespace platform
