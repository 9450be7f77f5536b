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
    const std::pair<const char*, int> cases[] = {{"203", 203},
                                                 {" \t203.5", 203},
                                                 {"-4x", -4},

                                                 {"build 5", 0},
                                                 {"99999999999999999999", 2147483647},
                                                 {"-99999999999", -2147483648}};
    for (const auto& [text, number] : cases)
        EXPECT_EQ(integerValue(text), number) << text;
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

TEST(UTF8, CountsCharactersAndRefusesWhatIsNotUTF8) {
    EXPECT_EQ(characterCount("a\u00e9\u20ac\U0001F600"), 4u);
    for (const char* bad :
         {"\x80", "\xC0\xAF", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "a\xE2\x82"})
        EXPECT_FALSE(decodeUTF8(bad)) << bad;
}

TEST(UTF8, MakesAnyBytesFitForXML) {
    EXPECT_EQ(textForXML("ok\t\u20ac"), "ok\t\u20ac");
    EXPECT_EQ(textForXML(std::string_view("a\0b\x1b\xFF\xEF\xBF\xBF\xE2\x82", 10)),
              "a\uFFFDb\uFFFD\uFFFD\uFFFD\uFFFD");
}

TEST(URL, ResolvesTheExamplesOfRFC3986) {
    const URL base = *URL::parse("http://a/b/c/d;p?q");
    const std::pair<const char*, const char*> cases[] = {{"g:h", "g:h"},
                                                         {"g", "http://a/b/c/g"},
                                                         {"/g", "http://a/g"},
                                                         {"//g", "http://g"},
                                                         {"?y", "http://a/b/c/d;p?y"},
                                                         {"#s", "http://a/b/c/d;p?q#s"},
                                                         {"", "http://a/b/c/d;p?q"},
                                                         {"..", "http://a/b/"},
                                                         {"../../../g", "http://a/g"},
                                                         {"g/../h", "http://a/b/c/h"},
                                                         {"g?y/./x", "http://a/b/c/g?y/./x"}};
    for (const auto& [reference, expected] : cases)
        EXPECT_EQ(URL::parse(reference, base)->absoluteString(), expected) << reference;
}

TEST(URL, TakesApartWhatItParsesAndRefusesTheRest) {
    const URL url = *URL::parse("HTTPS://user@[::1]:8149/a%20b?x=%31#f");
    EXPECT_EQ(url.scheme(), "https");
    EXPECT_EQ(url.host(), "[::1]");
    EXPECT_EQ(url.port(), 8149);
    EXPECT_EQ(url.path(), "/a b");
    EXPECT_EQ(url.query(), "x=%31");
    for (const char* bad :
         {"", "a b", "http://h/\u00e9", "%zz", "%4", "http://h:65536/", "http://h:x/", "a<b", "a\nb"})
        EXPECT_FALSE(URL::parse(bad)) << bad;
    EXPECT_EQ(URL::fileURLWithPath("/a b/\u00e9%.app").absoluteString(), "file:///a%20b/%C3%A9%25.app");
    EXPECT_EQ(URL::fileURLWithPath("/a b/\u00e9%.app").path(), "/a b/\u00e9%.app");
}

} // namespace
} // namespace platform
