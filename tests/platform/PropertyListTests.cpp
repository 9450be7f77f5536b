#include "platform/PropertyList.h"
#include "support/Shell.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <cmath>
#include <ctime>
#include <fstream>
#include <sstream>

namespace platform {
namespace {

using support::outputOf;

std::string reasonOf(const Result<Value>& result) {
    const auto* text = result ? nullptr : find<std::string>(result.error().userInfo, localizedDescriptionKey);
    return text ? *text : "(no error)";
}

std::string repeated(std::string_view text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
        result += text;
    return result;
}

Value::Dictionary samples() {
    return {{"", "empty key"},
            {" blank \t\n\r key ", "x"},
            {"markup <&>\"'", "]]> <&>\"' &amp;"},
            {"blanks", "  a\tb\nc\r\nd\re  "},
            {"text", "\u00e4\u20ac\U0001F600"},
            {"integers", Value::Array{0, -1, INT64_MAX, INT64_MIN}},
            {"reals", Value::Array{0.1, -1e300, 2.0}},
            {"booleans", Value::Array{true, false}},
            {"data", Data(std::string("\0\xff\x80 bytes", 9))},
            {"date", Date{650000000}},
            {"nothing", Value::Array{Value::Dictionary(), Value::Array(), Data(), ""}}};
}

/// A binary list with one byte for each offset and reference.
std::string binaryList(const std::vector<std::string>& objects, unsigned char root = 0) {
    std::string bytes = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
        table += static_cast<char>(bytes.size());
        bytes += object;
    }
    const auto tableOffset = static_cast<char>(bytes.size());
    const std::string zeros(7, '\0');
    return bytes + table + std::string(6, '\0') + "\1\1" + zeros + static_cast<char>(objects.size()) + zeros +
           static_cast<char>(root) + zeros + tableOffset;
}

TEST(PropertyList, KeepsEveryKindOfValue) {
    const Value value = samples();
    const auto back = parsePropertyList(propertyListXML(value));
    ASSERT_TRUE(back) << reasonOf(back);
    EXPECT_EQ(back->description(), value.description());
    EXPECT_EQ(*back, value);
}

TEST(PropertyList, OtherReadersAndWritersAgree) {
    const support::TemporaryFolder folder;
    const std::string ours = folder.write("ours.plist", propertyListXML(samples()));
    const std::string python = R"(python3 -c 'import plistlib, sys
value = plistlib.load(open(sys.argv[1], "rb"))
assert value["blanks"] == "  a\tb\nc\r\nd\re  ", value["blanks"]
assert value[" blank \t\n\r key "] == "x" and value["markup <&>\"'"'"'"].endswith("&amp;")
plistlib.dump(value, open(sys.argv[1] + ".bin", "wb"), fmt=plistlib.FMT_BINARY)
' )" + ours + " 2>&1";
    EXPECT_EQ(outputOf(python), "");
    EXPECT_EQ(outputOf("plistutil -i " + ours + " -f bin -o " + ours + ".util 2>&1"), "");
    for (const char* other : {".bin", ".util"}) {
        const auto value = readPropertyList(ours + other);
        ASSERT_TRUE(value) << other << ": " << reasonOf(value);
        EXPECT_EQ(value->description(), Value(samples()).description()) << other;
    }
}

TEST(PropertyList, MakesTextFitAndLeavesNullsOut) {
    const auto value = parsePropertyList(propertyListXML(Value::Dictionary{
        {"a\x01", "first"}, {"a\x02", "second"}, {"null", nullptr}, {"\xFF", std::string("\0\x1b", 2)}}));
    EXPECT_EQ(*value, Value(Value::Dictionary{{"a\uFFFD", "first"}, {"\uFFFD", "\uFFFD\uFFFD"}}));
}

TEST(PropertyList, ReadsWhatXMLAllows) {
    const std::pair<const char*, Value> cases[] = {
        {"<?xml version='1.0' encoding='ISO-8859-1'?><plist><string>\xe4</string></plist>", "\u00e4"},
        {"\xEF\xBB\xBF<!DOCTYPE plist SYSTEM 'x'><!-- c --><plist><true/><!-- c --></plist>", true},
        {"<plist><string>a<!-- c --><![CDATA[<&]]>\r\n&#x41;&lt;</string></plist>", "a<&\nA<"},
        {"<plist><integer> 010 </integer></plist>", 10},
        {"<plist><integer>0xFF</integer></plist>", 255},
        {"<plist><real>+infinity</real></plist>", HUGE_VAL},
        {"<plist><date>2001-01-02T00:00:01Z</date></plist>", Date{86401}},
        {"<plist><data>\n\taGk\n</data></plist>", Data("hi")},
        {"<plist><dict><key>k</key><true/><key>k</key><false/></dict></plist>",
         Value::Dictionary{{"k", false}}}};
    for (const auto& [text, value] : cases) {
        const auto read = parsePropertyList(text);
        EXPECT_TRUE(read && *read == value) << text << "\n" << reasonOf(read);
    }
}

TEST(PropertyList, RefusesWhatIsNoPropertyListInXML) {
    const std::pair<std::string, const char*> cases[] = {
        {"", "no element"},
        {"hello", "line 1"},
        {"<plist/>", "no value"},
        {"<plist><string>x</plist>", "mismatched"},
        {"<plist><string>x</string>", "no element"},
        {"<plist><true/><true/></plist>", "<true> stands where it may not"},
        {"<plist><plist><true/></plist></plist>", "no element of property lists"},
        {"<true/>", "may not"},
        {"<plist><dict><true/></dict></plist>", "may not"},
        {"<plist><dict><key>a</key></dict></plist>", "no value"},
        {"<plist><dict><key>a</key><key>b</key></dict></plist>", "may not"},
        {"<plist><array><key>a</key></array></plist>", "may not"},
        {"<plist><string><true/></string></plist>", "may not"},
        {"<plist><array>x</array></plist>", "text stands between"},
        {"<plist><note/></plist>", "no element of property lists"},
        {"<plist><integer>9223372036854775808</integer></plist>", "<integer> is malformed"},
        {"<plist><integer>1x</integer></plist>", "malformed"},
        {"<plist><integer/></plist>", "malformed"},
        {"<plist><true>x</true></plist>", "malformed"},
        {"<plist><date>2001-02-30T00:00:00Z</date></plist>", "malformed"},
        {"<plist><date>2001-01-0<!-- c -->1</date></plist>", "malformed"},
        {"<plist><data>a=b</data></plist>", "malformed"},
        {"<plist><string>\xff</string></plist>", "line 1"},
        {"<!DOCTYPE plist [<!ENTITY a 'aaaa'><!ENTITY b '&a;&a;'>]><plist><string>&b;</string></plist>",
         "document type of its own"},
        {"<!DOCTYPE plist SYSTEM 'x'><plist><string>&b;</string></plist>", "\"b\" is unknown"},
        {"<plist>" + repeated("<array>", 600) + repeated("</array>", 600) + "</plist>", "512 levels"}};
    for (const auto& [text, reason] : cases) {
        const auto read = parsePropertyList(text);
        EXPECT_THAT(reasonOf(read), testing::HasSubstr(reason)) << text.substr(0, 100);
    }
}

TEST(PropertyList, RefusesWhatIsNoPropertyListInBinary) {
    std::vector<std::string> doubled(40, "\xA2");
    for (std::size_t i = 0; i < doubled.size(); ++i)
        doubled[i] += std::string(2, static_cast<char>(i + 1));
    doubled.emplace_back("\x09");
    const std::string zero(1, '\0');
    const std::pair<std::string, const char*> cases[] = {
        {"bplist00", "cut short"},
        {"bplist15" + std::string(40, '\0'), "version"},
        {"bplist00" + std::string(40, '\xff'), "bad size"},
        {binaryList({"\x09"}, 9), "offset table"},
        {binaryList({"\xA1" + zero}), "contains itself"},
        {binaryList({"\xA1\x01", "\xA1" + zero}), "contains itself"},
        {binaryList(doubled), "million objects"},
        {binaryList({"\xA1\x07"}), "lies outside"},
        {binaryList({"\xAF\x13" + std::string(8, '\xff')}), "container lies outside"},
        {binaryList({"\xDF\x10\x7f"}), "container lies outside"},
        {binaryList({"\xD1\x01\x01", "\x09"}), "key is no text"},
        {binaryList({"\x5F\x11\xff\xff"}), "text or its bytes lie outside"},
        {binaryList({"\x4F\x13" + std::string(8, '\xff')}), "more than 64 MiB"},
        {binaryList({"\x52\xc3\xa4"}), "no ASCII"},
        {binaryList({"\x51" + zero}), "no ASCII"},
        {binaryList({"\x61\xd8" + zero}), "no UTF-16"},
        {binaryList({"\x61\xdc" + zero}), "no UTF-16"},
        {binaryList({"\x14" + std::string(8, '\xff') + std::string(8, '\0')}), "64 bits"},
        {binaryList({"\x33\x7f\xf8" + std::string(6, '\0')}), "years"},
        {binaryList({"\x25" + std::string(32, '\0')}), "bad size"},
        {binaryList({"\x32" + std::string(4, '\0')}), "bad size"},
        {binaryList({zero}), "unknown type"},
        {binaryList({"\x70"}), "unknown type"}};
    for (const auto& [bytes, reason] : cases)
        EXPECT_THAT(reasonOf(parsePropertyList(bytes)), testing::HasSubstr(reason));
    EXPECT_EQ(*parsePropertyList(binaryList({"\x62\xd8\x3d\xde" + zero})), Value("\U0001F600"));
    EXPECT_EQ(*parsePropertyList(binaryList({"\x81\x01\x02"})), Value(Value::Dictionary{{"CF$UID", 258}}));
}

TEST(PropertyList, SurvivesEveryTruncationAndEveryChangedByte) {
    const support::TemporaryFolder folder;
    const std::string xml = folder.write("list", propertyListXML(samples()));
    outputOf("plistutil -i " + xml + " -f bin -o " + xml + ".bin");
    for (const std::string& path : {xml, xml + ".bin"}) {
        std::stringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        const std::string bytes = text.str();
        ASSERT_FALSE(bytes.empty());
        for (std::size_t i = 0; i + 1 < bytes.size(); ++i) {
            EXPECT_TRUE(!parsePropertyList(bytes.substr(0, i)) || bytes.substr(i) == "\n") << i;
            for (const char flip : {'\x01', '\x40', '\xff'}) {
                std::string changed = bytes;
                changed[i] = static_cast<char>(changed[i] ^ flip);
                (void)parsePropertyList(changed);
            }
        }
    }
}

TEST(PropertyList, TakesLinearTime) {
    Value::Dictionary many{{"markup", repeated("&<\r", 200'000)}};
    for (int i = 0; i < 50'000; ++i)
        many.emplace("key" + std::to_string(i), std::string(20, 'x'));
    const Value value = std::move(many);
    const std::clock_t start = std::clock();
    const auto back = parsePropertyList(propertyListXML(value));
    // Of the processor's time; quadratic work would take minutes.
    EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
    EXPECT_TRUE(back && *back == value);
}

TEST(PropertyList, ReadsFilesAndSaysWhichOneIsBad) {
    const support::TemporaryFolder folder;
    const std::string array = folder.write("array.plist", "<plist><array/></plist>");
    EXPECT_TRUE(readPropertyList(array));
    EXPECT_FALSE(readDictionary(array));
    EXPECT_FALSE(readDictionary(folder.path("none")));
    EXPECT_EQ(readDictionary(folder.write("d", "<plist><dict/></plist>")), Value::Dictionary());
    EXPECT_THAT(reasonOf(readPropertyList(folder.write("bad.plist", "x"))),
                testing::StartsWith(folder.path("bad.plist") + ": The property list cannot be read"));
    EXPECT_THAT(reasonOf(readPropertyList(folder.write("big", std::string((16u << 20) + 1, ' ')))),
                testing::HasSubstr("too large"));
}

} // namespace
} // namespace platform
