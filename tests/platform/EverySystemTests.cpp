#include "platform/files/CopyItem.h"
#include "platform/files/Files.h"
#include "platform/propertylist/PropertyList.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <cmath>
#include <ctime>
#include <filesystem>

// What holds on every system, whether it is the system's code or the project's.
namespace platform {
namespace {

using support::TemporaryFolder;
using testing::HasSubstr;

TEST(CopyItem, CopiesAFolderButOverwritesNothing) {
    const TemporaryFolder folder;
    folder.write("a/b/file", "content");
    folder.write("there", "old");
    std::filesystem::create_symlink("nowhere", folder.path("a/link"));
    const std::string source = folder.path("a"), copy = folder.path("copy");
    EXPECT_TRUE(copyItem({.source = source, .destination = copy}));
    EXPECT_EQ(readFile(copy + "/b/file")->bytes(), "content");
    EXPECT_EQ(std::filesystem::read_symlink(copy + "/link"), "nowhere");
    for (const char* name : {"there", "copy", "missing/x", "a/link", "a/b/copy"})
        EXPECT_FALSE(copyItem({.source = source, .destination = folder.path(name)})) << name;
    EXPECT_FALSE(copyItem({.source = folder.path("none"), .destination = folder.path("x")}));
    EXPECT_EQ(readFile(folder.path("there"))->bytes(), "old");
}

TEST(MapFile, ReadsWhatCannotBeMapped) {
    const TemporaryFolder folder;
    EXPECT_EQ(mapFile(folder.write("file", "content"))->bytes(), "content");
    EXPECT_EQ(mapFile(folder.write("empty", ""))->bytes(), "");
    for (const std::string& path : {folder.path("none"), folder.path()})
        EXPECT_FALSE(mapFile(path)) << path;
    const std::string unmappable = "/sys/devices/system/cpu/possible";
    if (!fileExists(unmappable))
        GTEST_SKIP() << "no file that cannot be mapped";
    EXPECT_THAT(std::string(mapFile(unmappable)->bytes()), testing::MatchesRegex("[0-9,-]+\n"));
}

TEST(PropertyList, ReadsXMLAndBinaryDocuments) {
    const std::string expected = propertyListXML(
        Value::Dictionary{{"\u00e4", Value::Array{-31, 1.5, true, Data(std::string("\0\1", 2))}}});
    const auto xml = parsePropertyList(
        "<plist><dict><key>&#xe4;</key><array><integer>-0x1F</integer><real>+1.5e0</real><true/>"
        "<data> AA\n\tE= </data></array></dict></plist>");
    EXPECT_EQ(propertyListXML(*xml), expected);
    EXPECT_EQ(propertyListXML(*parsePropertyList(expected)), expected);
    const std::string zeros(7, '\0');
    const auto binary =
        parsePropertyList("bplist00\x52"
                          "ab\x08" +
                          zeros.substr(1) + "\1\1" + zeros + "\1" + zeros + zeros + '\0' + "\x0b");
    EXPECT_TRUE(binary && *binary == Value("ab"));
}

TEST(PropertyList, ReadsDates) {
    const auto date = parsePropertyList("<plist><date>1999-01-01T00:00:00Z</date></plist>");
    EXPECT_TRUE(date && *date == Value(Date{-63158400}));
}

TEST(PropertyList, RefusesInvalidDocuments) {
    std::string nested = "<plist>";
    for (int i = 0; i < 600; ++i)
        nested += "<array>";
    for (const std::string& text :
         {std::string(), std::string("x"), std::string("{a = b;}"), std::string("<plist></plist>"),
          std::string("<plist><true/><true/></plist>"), std::string("<plist><dict><true/></dict></plist>"),
          std::string("<plist><integer>1x</integer></plist>"), std::string("<plist><string>x"), nested,
          "bplist00" + std::string(32, '\0')})
        EXPECT_FALSE(parsePropertyList(text)) << text.substr(0, 100);
}

TEST(PropertyList, ReplacesInvalidTextAndOmitsNulls) {
    const auto value = parsePropertyList(propertyListXML(Value::Dictionary{
        {"a\x01", "first"}, {"a\x02", "second"}, {"null", nullptr}, {"\xFF", std::string("\0\x1b", 2)}}));
    EXPECT_EQ(*value, Value(Value::Dictionary{{"a\uFFFD", "first"}, {"\uFFFD", "\uFFFD\uFFFD"}}));
}

TEST(PropertyList, WritesNumbersAndDatesInFull) {
    const std::pair<Value, std::string> cases[] = {
        {0.1, "<real>0.10000000000000001</real>"},
        {-0.0, "<real>-0.0</real>"},
        {HUGE_VAL, "<real>+infinity</real>"},
        {-HUGE_VAL, "<real>-infinity</real>"},
        {std::nan(""), "<real>nan</real>"},
        {Date{-0.5}, "<date>2000-12-31T23:59:59Z</date>"},
        {Date{-64527624000}, "<date>-0044-03-15T12:00:00Z</date>"},
        {Date{std::nan("")}, "<date>2001-01-01T00:00:00Z</date>"},
        {Date{1e300}, "<date>1901326311-05-31T10:40:00Z</date>"},
    };
    for (const auto& [value, element] : cases)
        EXPECT_THAT(propertyListXML(Value::Array{value}), HasSubstr("\t" + element + "\n"));
}

TEST(PropertyList, IsReadInLinearTime) {
    Value::Dictionary many{{"markup", std::string(900'000, '&')}, {"returns", std::string(900'000, '\r')}};
    for (int i = 0; i < 100'000; ++i)
        many.emplace("key" + std::to_string(i), std::string(20, 'x'));
    const std::clock_t start = std::clock();
    EXPECT_TRUE(*parsePropertyList(propertyListXML(many)) == Value(many));
    // Processor time. Quadratic work would take minutes.
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
