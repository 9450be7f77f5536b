#include "platform/files/Files.h"
#include "platform/propertylist/PropertyList.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <cmath>

namespace platform {
namespace {

using support::outputOf;
using testing::HasSubstr;

std::string reasonOf(const Result<Value>& result) {
    return result ? "(no error)" : result.error().description();
}

/// Every type of value, and text that is difficult to write.
const Value samples = Value::Dictionary{
    {"", Value::Array{0, -1, INT64_MAX, INT64_MIN, UINT64_MAX, 0.1, -1e300, 5e-324, 2.0, HUGE_VAL, -HUGE_VAL,
                      true, false, Date{650000000}, Date{-6e10}, Date{2e11}}},
    {" blank \t\n\r key ", "  a\tb\nc\r\nd\re  "},
    {"markup <&>\"'", "]]> <&>\"' &amp;"},
    {"text", "\u00e4\u20ac\U0001F600"},
    {"data", Value::Array{Data(std::string("\0\xff\x80 bytes", 9)), Data(std::string(47, 'x'))}},
    {"nothing", Value::Array{Value::Dictionary(), Value::Array(), Data(), ""}}};

/// A binary property list with one byte for each offset and reference.
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

TEST(PropertyList, IsCompatibleWithPythonsPlistlib) {
    const support::TemporaryFolder folder;
    const std::string ours = folder.write("ours.plist", propertyListXML(samples));
    const std::string python = R"(python3 -c 'import plistlib, re, sys
ours = open(sys.argv[1], "rb").read()
value = plistlib.loads(ours)
plain = lambda xml: re.sub(b"<real>.*", b"", re.sub(b"(&#13;)?\n|&#13;", b"\n", xml))
assert plain(ours) == plain(plistlib.dumps(value)), plistlib.dumps(value)
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

TEST(PropertyList, ReadsAllValidForms) {
    const std::string zero(1, '\0');
    const std::u16string utf16 =
        u"\uFEFF<?xml version='1.0' encoding='UTF-16'?><plist><string>a</string></plist>";
    const std::pair<std::string, Value> cases[] = {
        {"<?xml version='1.0' encoding='ISO-8859-1'?><plist><string>\xe4</string></plist>", "\u00e4"},
        {"\xEF\xBB\xBF<!DOCTYPE plist SYSTEM 'x'><!-- c --><plist><true/><!-- c --></plist>", true},
        {"<plist><string>a<!-- c --><![CDATA[<&]]>\r\n&#x41;&lt;</string></plist>", "a<&\nA<"},
        {"\n <?xml version='1.0'?><!DOCTYPE plist PUBLIC 'x' 'y' [<!ELEMENT plist ANY> <!-- c --> <?p i?>"
         "<!ATTLIST plist version CDATA '1.0'>]><?p i?><plist><true/></plist>",
         true},
        {std::string(reinterpret_cast<const char*>(utf16.data()), 2 * utf16.size()), "a"},
        {"<plist><array><integer> 010 </integer><integer>- 0x1F</integer><integer>+18446744073709551615</integer>"
         "<real>+1e5</real><real>-1e999</real><real>0.00e-999</real><real>1e-999</real><real>-INF</real>"
         "<date>-0044-03-15T12:00:00Z</date><date>0000-02-29T00:00:00Z</date><date>1998-12-31T23:59:60Z</date>"
         "<data> AA\n\tE </data></array></plist>",
         Value::Array{10, -31, UINT64_MAX, 1e5, -HUGE_VAL, 0.0, 0.0, -HUGE_VAL, Date{-64527624000},
                      Date{-63140428800}, Date{-63158400}, Data(std::string("\0\1", 2))}},
        {"<plist><dict><key/><true/><key/><false/></dict></plist>", Value::Dictionary{{"", false}}},
        {binary({std::string("\x62\xd8\x3d\xde\0", 5)}), "\U0001F600"},
        {binary({"\x64\xdc" + zero + "\xd8" + zero + zero + "A\xd8" + zero}),
         std::string("\uFFFD\uFFFDA\uFFFD")},
        {binary({"\x52" + zero + "a"}), std::string("\0a", 2)},
        {binary({"\x60"}), ""},
        {binary({"\x81\x01\x02"}), Value::Dictionary{{"CF$UID", 258}}},
        {binary({"\x12" + std::string(4, '\xff')}), 4294967295},
        {binary({"\x14" + std::string(16, '\xff')}), -1},
        {binary({"\x22\x3f\xc0" + zero + zero}), 1.5},
        {binary({"\x33\x7f\xf0" + std::string(6, '\0')}), Date{HUGE_VAL}},
        {binary({"\xC2\x01\x02", zero, "\x09"}), Value::Array{nullptr, true}},
    };
    for (const auto& [bytes, value] : cases) {
        const auto read = parsePropertyList(bytes);
        EXPECT_TRUE(read && *read == value) << bytes << reasonOf(read);
    }
}

/// A part of the reason, and documents that are refused for it.
using Refusals = std::vector<std::pair<const char*, std::vector<std::string>>>;

void expectRefusals(const Refusals& refusals) {
    for (const auto& [reason, documents] : refusals)
        for (const std::string& text : documents)
            EXPECT_THAT(reasonOf(parsePropertyList(text)), HasSubstr(reason)) << text.substr(0, 100);
}

TEST(PropertyList, RefusesInvalidXML) {
    std::string attributes, nested;
    for (int i = 0; i < 600; ++i)
        nested += "<array>";
    for (int i = 0; i < 101; ++i)
        attributes += " a" + std::to_string(i) + " CDATA '1'";
    Refusals refusals = {{"no value", {"", "<dict><key>a</key></dict>"}},
                         {"is not allowed here",
                          {"<true/><true/>", "<dict><true/></dict>", "<array><key>a</key></array>",
                           "<dict><key>a</key><key>b</key></dict>", "<string><true/></string>"}},
                         {"there is text between", {"x", "<array>x</array>"}},
                         {"is not an element of property lists", {"<note/>", "<plist><true/></plist>"}},
                         {"malformed",
                          {"<integer>18446744073709551616</integer>",
                           "<integer>-9223372036854775809</integer>", "<integer>1x</integer>", "<integer/>",
                           "<real>1e400x</real>", "<true>x</true>", "<date>2001-02-29T00:00:00Z</date>",
                           "<date>2001-1-01T00:00:00Z</date>", "<data>a=b</data>", "<data>a</data>"}},
                         {"line 1", {"<string>\xff</string>", "<string>x"}},
                         {"512 levels", {nested}}};
    for (auto& [reason, documents] : refusals)
        for (std::string& text : documents)
            text.insert(0, "<plist>").append("</plist>");
    expectRefusals(refusals);
    expectRefusals(
        {{"100 attributes", {"<!DOCTYPE plist [<!ATTLIST a" + attributes + ">]><plist><true/></plist>"}},
         {"the entity \"b\"", {"<!DOCTYPE plist [<!ENTITY b 'a'>]><plist><string>&b;</string></plist>"}},
         {"\"b\" is unknown", {"<!DOCTYPE plist SYSTEM 'x'><plist><string>&b;</string></plist>"}}});
}

TEST(PropertyList, RefusesInvalidBinaryFiles) {
    std::vector<std::string> doubled, repeated;
    for (char i = 1; i <= 40; ++i)
        doubled.push_back("\xA2" + std::string(2, i));
    doubled.emplace_back("\x09");
    for (char i = 1; i <= 5; ++i)
        repeated.push_back("\xAE" + std::string(14, i));
    repeated.push_back("\x5F\x10\x7F" + std::string(127, 'x'));
    const std::string zero(1, '\0'), eightZeros(8, '\0'), eightOnes(8, '\xff');
    expectRefusals(
        {{"bad size",
          {binary({"\x25" + std::string(32, '\0')}), binary({"\x32" + std::string(4, '\0')}),
           "bplist00" + std::string(32, '\0')}},
         {"offset table", {"bplist00" + std::string(6, '\0') + "\1\1" + eightOnes + eightOnes + eightOnes}},
         {"an object lies outside", {binary({"\x09"}, 9)}},
         {"contains itself", {binary({"\xA1" + zero}), binary({"\xA1\x01", "\xA1" + zero})}},
         {"shared objects are too large", {binary(doubled), binary(repeated)}},
         {"lies outside", {binary({"\xA1\x07"}), binary({"\xAF\x13" + eightOnes}), binary({"\xDF\x10\x7f"})}},
         {"key is not a text", {binary({"\xD1\x01\x01", "\x09"})}},
         {"a text or data lies outside", {binary({"\x5F\x11\xff\xff"}), binary({"\x6F\x13" + eightOnes})}},
         {"an ASCII text contains other characters", {binary({"\x52\xc3\xa4"})}},
         {"64 bits", {binary({"\x14" + eightOnes + eightZeros})}},
         {"unknown type", {binary({"\x0F"}), binary({"\x70"})}}});
}

} // namespace
} // namespace platform
