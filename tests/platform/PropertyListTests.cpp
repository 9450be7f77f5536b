#include "platform/Files.h"
#include "platform/PropertyList.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <ctime>

namespace platform {
namespace {

using support::outputOf;
using testing::HasSubstr;

std::string reasonOf(const Result<Value>& result) {
    const auto* text = result ? nullptr : find<std::string>(result.error().userInfo, localizedDescriptionKey);
    return text ? *text : "(no error)";
}

/// Every kind of value, and text that is easily spoiled on the way.
const Value samples = Value::Dictionary{
    {"", Value::Array{0, -1, INT64_MAX, INT64_MIN, 0.1, -1e300, 2.0, true, false, Date{650000000}}},
    {" blank \t\n\r key ", "  a\tb\nc\r\nd\re  "},
    {"markup <&>\"'", "]]> <&>\"' &amp;"},
    {"text", "\u00e4\u20ac\U0001F600"},
    {"data", Data(std::string("\0\xff\x80 bytes", 9))},
    {"nothing", Value::Array{Value::Dictionary(), Value::Array(), Data(), ""}}};

/// A binary list with one byte for each offset and reference.
std::string binary(const std::vector<std::string>& objects, unsigned char root = 0) {
    std::string bytes = "bplist00", table;
    for (const std::string& object : objects) {
        table += static_cast<char>(bytes.size());
        bytes += object;
    }
    const std::string zeros(7, '\0'), count(1, static_cast<char>(objects.size()));
    const std::string trailer = "\1\1" + zeros + count + zeros + static_cast<char>(root) + zeros;
    return bytes + table + std::string(6, '\0') + trailer + static_cast<char>(bytes.size());
}

TEST(PropertyList, KeepsEveryKindOfValueAsOtherReadersAndWritersDo) {
    const support::TemporaryFolder folder;
    const std::string ours = folder.write("ours.plist", propertyListXML(samples));
    const std::string python = R"(python3 -c 'import plistlib, sys
value = plistlib.load(open(sys.argv[1], "rb"))
assert value[" blank \t\n\r key "] == "  a\tb\nc\r\nd\re  ", value
plistlib.dump(value, open(sys.argv[1] + ".bin", "wb"), fmt=plistlib.FMT_BINARY)' )";
    outputOf(python + ours);
    for (const std::string& path : {ours, ours + ".bin"}) {
        const std::string bytes(readFile(path)->bytes());
        const auto value = parsePropertyList(bytes);
        EXPECT_TRUE(value && *value == samples) << reasonOf(value);
        for (std::size_t i = 0; i + 1 < bytes.size(); ++i)
            EXPECT_TRUE(!parsePropertyList(bytes.substr(0, i)) || bytes.substr(i) == "\n") << i;
    }
}

TEST(PropertyList, MakesTextFitAndLeavesNullsOut) {
    const auto value = parsePropertyList(propertyListXML(Value::Dictionary{
        {"a\x01", "first"}, {"a\x02", "second"}, {"null", nullptr}, {"\xFF", std::string("\0\x1b", 2)}}));
    EXPECT_EQ(*value, Value(Value::Dictionary{{"a\uFFFD", "first"}, {"\uFFFD", "\uFFFD\uFFFD"}}));
}

TEST(PropertyList, ReadsWhatItsFormatsAllow) {
    const std::pair<std::string, Value> cases[] = {
        {"<?xml version='1.0' encoding='ISO-8859-1'?><plist><string>\xe4</string></plist>", "\u00e4"},
        {"\xEF\xBB\xBF<!DOCTYPE plist SYSTEM 'x'><!-- c --><plist><true/><!-- c --></plist>", true},
        {"<plist><string>a<!-- c --><![CDATA[<&]]>\r\n&#x41;&lt;</string></plist>", "a<&\nA<"},
        {"<plist><integer> 010 </integer></plist>", 10},
        {"<plist><dict><key>k</key><true/><key>k</key><false/></dict></plist>",
         Value::Dictionary{{"k", false}}},
        {binary({std::string("\x62\xd8\x3d\xde\0", 5)}), "\U0001F600"},
        {binary({"\x81\x01\x02"}), Value::Dictionary{{"CF$UID", 258}}}};
    for (const auto& [text, value] : cases) {
        const auto read = parsePropertyList(text);
        EXPECT_TRUE(read && *read == value) << text << "\n" << reasonOf(read);
    }
}

TEST(PropertyList, RefusesWhatIsNoPropertyList) {
    std::vector<std::string> doubled(40, "\xA2");
    for (std::size_t i = 0; i < doubled.size(); ++i)
        doubled[i] += std::string(2, static_cast<char>(i + 1));
    doubled.emplace_back("\x09");
    std::string nested;
    for (int i = 0; i < 1200; ++i)
        nested += i < 600 ? "<array>" : "</array>";
    const std::string zero(1, '\0'), eightZeros(8, '\0'), eightOnes(8, '\xff');
    const std::pair<const char*, std::vector<std::string>> refusals[] = {
        {"no value", {"", "<dict><key>a</key></dict>"}},
        {"stands where it may not",
         {"<true/><true/>", "<dict><true/></dict>", "<array><key>a</key></array>",
          "<dict><key>a</key><key>b</key></dict>", "<string><true/></string>"}},
        {"text stands between", {"x", "<array>x</array>"}},
        {"no element of property lists", {"<note/>", "<plist><true/></plist>"}},
        {"is malformed",
         {"<integer>9223372036854775808</integer>", "<integer>1x</integer>", "<integer/>", "<true>x</true>",
          "<date>2001-02-30T00:00:00Z</date>", "<date>2001-01-0<!-- c -->1</date>", "<data>a=b</data>"}},
        {"line 1", {"<string>\xff</string>", "<string>x"}},
        {"512 levels", {nested}},
        {"type of its own", {"<!DOCTYPE plist [<!ENTITY b 'a'>]><plist><string>&b;</string></plist>"}},
        {"\"b\" is unknown", {"<!DOCTYPE plist SYSTEM 'x'><plist><string>&b;</string></plist>"}},
        {"bad size", {binary({"\x25" + std::string(32, '\0')}), binary({"\x32" + std::string(4, '\0')})}},
        {"offset table", {binary({"\x09"}, 9)}},
        {"contains itself", {binary({"\xA1" + zero}), binary({"\xA1\x01", "\xA1" + zero})}},
        {"million objects", {binary(doubled)}},
        {"lies outside", {binary({"\xA1\x07"}), binary({"\xAF\x13" + eightOnes}), binary({"\xDF\x10\x7f"})}},
        {"key is no text", {binary({"\xD1\x01\x01", "\x09"})}},
        {"bytes lie outside", {binary({"\x5F\x11\xff\xff"})}},
        {"more than 64 MiB", {binary({"\x4F\x13" + eightOnes})}},
        {"no ASCII", {binary({"\x52\xc3\xa4"}), binary({"\x51" + zero})}},
        {"no UTF-16", {binary({"\x61\xd8" + zero}), binary({"\x61\xdc" + zero})}},
        {"64 bits", {binary({"\x14" + eightOnes + eightZeros})}},
        {"years", {binary({"\x33\x7f\xf8" + std::string(6, '\0')})}},
        {"unknown type", {binary({zero}), binary({"\x70"})}}};
    for (const auto& [reason, documents] : refusals)
        for (const std::string& text : documents) {
            const bool isWhole = text.starts_with("bplist") || text.starts_with("<!DOCTYPE");
            const auto read = parsePropertyList(isWhole ? text : "<plist>" + text + "</plist>");
            EXPECT_THAT(reasonOf(read), HasSubstr(reason)) << text.substr(0, 100);
        }
}

TEST(PropertyList, TakesLinearTime) {
    Value::Dictionary many{{"markup", std::string(900'000, '&')}, {"returns", std::string(900'000, '\r')}};
    for (int i = 0; i < 100'000; ++i)
        many.emplace("key" + std::to_string(i), std::string(20, 'x'));
    const std::clock_t start = std::clock();
    EXPECT_TRUE(*parsePropertyList(propertyListXML(many)) == Value(many));
    // Of the processor's time; quadratic work would take minutes.
    EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
}

TEST(PropertyList, ReadsDictionariesFromFiles) {
    const support::TemporaryFolder folder;
    EXPECT_EQ(readDictionary(folder.write("d", "<plist><dict/></plist>")), Value::Dictionary());
    for (const std::string& other : {std::string("x"), std::string("<plist><array/></plist>"),
                                     "<plist><dict/></plist>" + std::string(16u << 20, ' ')})
        EXPECT_FALSE(readDictionary(folder.write("other", other)));
}

} // namespace
} // namespace platform
