#include "TWLWebClient/TWLWebClient.h"
#include "TWLWebClient/TWLWebClientTransaction.h"

#include <gmock/gmock.h>

#include <bit>

using platform::Data;
using platform::Value;
using testing::HasSubstr;

namespace {

TEST(Request, WritesEachFormRecordUpToItsFirstNull) {
    const auto part = [](const std::string& names, const std::string& bytes,
                         const std::string& type = "text/plain") {
        return "--AaB03x\r\nContent-Disposition: form-data; name=\"" + names + "\"\r\nContent-Type: " + type +
               "\r\n\r\n" + bytes + "\r\n";
    };
    const std::string binary = "\r\nContent-Transfer-Encoding: binary";
    TWLWebRequest request("POST");
    EXPECT_FALSE(request.formData());
    request.addData(Data("PK\x03 \xff\n"), "application/zip", "x.zip", "file");
    request.addValueForFormField(nullptr, "f");
    request.addValueForFormField("v", std::nullopt);
    request.addData(Data("B"), "a/b", "x.zip", std::nullopt);
    request.addData(Data("B"), std::nullopt, "x.zip", "f");
    request.addData(Data("B"), "a/b", std::nullopt, "f");
    request.addValueForFormField(7, "number");
    request.addValueForFormField("a\"b\r\n", "\"q\"");
    request.setFormData({{"a", "1"}});
    request.setFormData({{"a", "2"}, {"skipped", Value::Array{"x"}}});
    request.addValueForFormFromDict({{"k", "v"}});
    request.addValueForFormFromDict({{"k", "w"}}, "p");
    EXPECT_EQ(request.formData()->bytes(),
              "MIME-Version: 1.0\r\n" +
                  part("file\"; filename=\"x.zip", "PK\x03 \xff\n", "application/zip" + binary) +
                  part("(null)", "v") + part("(null)\"; filename=\"(null)", "B", "application/octet-stream") +
                  part("f\"; filename=\"(null)", "B", "application/octet-stream") +
                  part("f\"; filename=\"(null)", "B", "a/b" + binary) + part("\"q\"", "a\"b\r\n") +
                  part("a", "1") + part("a", "2") + part("[k]", "v") + part("p[k]", "w") + "--AaB03x--\r\n");
}

TEST(Response, DescribesStatusErrorAndBody) {
    TWLWebResponse response;
    for (const std::uint64_t status : {199u, 200u, 299u, 300u}) {
        response.setStatusCode(status);
        EXPECT_EQ(response.wasSuccessful(), status / 100 == 2) << status;
    }
    response.setResponseHeaders(platform::HTTPHeaders{{"A", "b"}});
    response.setBody(Value::Array{1, nullptr});
    response.setError(platform::Error{"D", -1, {}});
    EXPECT_EQ(response.description(), "{request: (null), status: 300, body: (1, (null)), error: "
                                      "Error Domain=D Code=-1, headers: {\"A\" = \"b\"}}");
}

/// The code units as UTF-16 or UTF-32 holds them.
std::string bytesOf(const auto& text, std::endian order) {
    std::string bytes;
    for (const auto unit : text)
        for (std::size_t i = 0; i < sizeof unit; ++i)
            bytes += static_cast<char>(unit >> 8 * (order == std::endian::big ? sizeof unit - 1 - i : i));
    return bytes;
}

TEST(JSON, DecodesObjectsAndArraysInEachUnicodeEncoding) {
    EXPECT_EQ(TWLWebClient::decodeJSON(R"([1, -2.5, true, null, "\u00e9", 18446744073709551615, {"k": []}])"),
              Value(Value::Array{1, -2.5, true, nullptr, "\u00e9", 18446744073709551615.0,
                                 Value::Dictionary{{"k", Value::Array{}}}}));
    const Value wide = Value::Array{"\u00e9\U0001F600"};
    EXPECT_EQ(TWLWebClient::decodeJSON("\uFEFF[\"\u00e9\U0001F600\"]"), wide);
    for (const std::endian order : {std::endian::little, std::endian::big}) {
        for (const std::u16string mark : {u"", u"\uFEFF"})
            EXPECT_EQ(TWLWebClient::decodeJSON(bytesOf(mark + u"[\"\u00e9\U0001F600\"]", order)), wide);
        for (const std::u32string mark : {U"", U"\uFEFF"})
            EXPECT_EQ(TWLWebClient::decodeJSON(bytesOf(mark + U"[\"\u00e9\U0001F600\"]", order)), wide);
        for (const std::u16string bad : {u"[\"\xD83D\"]", u"[\"\xDE00\"]", u"[\"\xD83D"})
            EXPECT_TRUE(TWLWebClient::decodeJSON(bytesOf(bad, order)).isNull());
    }
    const auto nested = [](std::size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    EXPECT_TRUE(TWLWebClient::decodeJSON(nested(512)).as<Value::Array>());
    const std::string bad[] = {
        nested(513), std::string(1 << 20, '['), "1", "\"a\"", "", "[1", "[\"\xff\"]", "[1e999]", "[] []",
        "{\"a\" 1}", std::string("[1]\0]", 5)};
    for (const std::string& text : bad)
        EXPECT_TRUE(TWLWebClient::decodeJSON(text).isNull()) << text.substr(0, 20);
}

TEST(ProgrammingErrors, AbortWithTheFailedExpression) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto transaction =
        TWLWebClientTransaction::transactionWithRequest(TWLWebRequest::requestWithMethod("GET", "/"));
    transaction->startConnection();
    const auto ignore = [](const auto&) {
    };
    EXPECT_DEATH(TWLWebRequest::requestWithMethod("GET", std::nullopt),
                 HasSubstr("(path), function +[TWLWebRequest requestWithMethod:path:]"));
    EXPECT_DEATH(TWLWebClient::encodeJSON(1), HasSubstr("(0 && \"encodeJSON: isn't implemented yet\")"));
    EXPECT_DEATH(transaction->complete(),
                 HasSubstr("(_completionHandler), function -[TWLWebClientTransaction complete]"));
    EXPECT_DEATH(transaction->startConnection(), HasSubstr("(_connection == nil), function -[TWL"));
    EXPECT_DEATH(transaction->syncStartWithCompletionHandler(ignore), HasSubstr("(!_connection), function"));
}

} // namespace
