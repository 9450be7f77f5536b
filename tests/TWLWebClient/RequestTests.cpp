#include "TWLWebClient/TWLWebClient.h"
#include "TWLWebClient/TWLWebClientTransaction.h"
#include "platform/Files.h"
#include "support/HTTPServer.h"

#include <gmock/gmock.h>

using platform::Data;
using platform::Value;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

namespace {

std::shared_ptr<TWLWebRequest> postRequest() {
    return TWLWebRequest::requestWithMethod("POST", "upload");
}

std::string golden(const std::string& name) {
    return std::string(platform::readFile(GOLDEN_FOLDER "/" + name)->bytes());
}

const Data zip(std::string("PK\x03\x04\0\xff", 6));

/// What stands between the first boundary and the last one of a body with this one record.
std::string partOf(TWLWebRequest& request) {
    const std::string start = "MIME-Version: 1.0\r\n";
    const std::string body = request.formData()->bytes();
    return body.substr(start.size(), body.size() - start.size() - std::string("--AaB03x--\r\n").size());
}

TEST(Request, AppendsEscapedParametersToItsURL) {
    TWLWebRequest request("GET");
    request.setURL(platform::URL::parse("http://h/p?q=1"));
    EXPECT_EQ(request.fullURL(), request.URL());
    request.setParameters(TWLWebRequest::Parameters{});
    EXPECT_EQ(request.fullURL(), request.URL());
    request.setParameters(TWLWebRequest::Parameters{{"a b", "x&y"}, {"p", "100%"}});
    EXPECT_EQ(request.fullURL()->absoluteString(), "http://h/p?q=1?a%20b=x%26y&p=100%25");
    EXPECT_EQ(TWLWebClient::escapeURLString("-._~aZ09 !*'\"();:@&=+$,/?#[]%<\u00e9\u20ac"),
              "-._~aZ09%20%21%2A%27%22%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%23%5B%5D%25%3C%C3%A9%E2%82%AC");
}

TEST(Request, KeepsOneValueForEachHeaderInAnyCase) {
    TWLWebRequest request("GET");
    request.addValueForHTTPHeaderField("first", "X-A");
    request.addValueForHTTPHeaderField("second", "X-A");
    request.addHeaders({{"x-a", "default"}, {"X-B", "default"}});
    EXPECT_THAT(request.customHeaders(), ElementsAre(Pair("X-A", "second"), Pair("X-B", "default")));
    platform::URLRequest platformRequest;
    platformRequest.addValueForHTTPHeaderField("1", "X-A");
    platformRequest.addValueForHTTPHeaderField("2", "x-a");
    EXPECT_THAT(platformRequest.headers, ElementsAre(Pair("X-A", "1,2")));
}

TEST(Request, WritesTheGoldenBodies) {
    const auto small = postRequest();
    small->addValueForFormField("1", "a");
    small->addData(zip, "application/zip", "x.zip", "file");
    EXPECT_EQ(small->formData()->bytes(), golden("text-and-file.body"));
    EXPECT_EQ(small->formData()->bytes(), golden("text-and-file.body")) << "the second time";
    EXPECT_EQ(small->customHeaders().at("Content-Type"), "multipart/form-data; boundary=AaB03x");

    const std::vector<std::pair<std::string, std::string>> fields = {
        {"project[identifier]", "com.example.app"},
        {"project[display_version]", "42"},
        {"project[build_version]", "1.2"},
        {"code_mapping[build_configuration]", "Release"},
        {"code_mapping[type]", "dsym"},
        {"com_tarnwhistle_run_version", "149"},
        {"code_mapping[executables][][identifier]", "0123456789abcdef0123456789abcdef"},
        {"code_mapping[executables][][arch]", "arm64"},
        {"code_mapping[executables][][identifier]", "fedcba9876543210fedcba9876543210"},
        {"code_mapping[executables][][arch]", "armv7s"}};
    const auto upload = postRequest();
    std::vector<support::FormPart> parts;
    for (const auto& [name, value] : fields) {
        upload->addValueForFormField(value, name);
        parts.push_back({name, "", "text/plain", value});
    }
    upload->addData(zip, "application/zip", "archive.zip", "code_mapping[file]");
    parts.push_back({"code_mapping[file]", "archive.zip", "application/zip", std::string(zip.bytes())});
    const std::string body = upload->formData()->bytes();
    EXPECT_EQ(body, golden("symbol-upload.body"));
    EXPECT_EQ(support::parseForm(upload->customHeaders().at("Content-Type"), body), parts);
}

TEST(Request, SharesTheBytesOfAFileWithItsBody) {
    const auto request = postRequest();
    request->addData(zip, "application/zip", "x.zip", "file");
    const platform::HTTPBody body = *request->URLRequest()->body;
    EXPECT_TRUE(std::any_of(body.pieces().begin(), body.pieces().end(),
                            [](const Data& piece) { return piece.bytes().data() == zip.bytes().data(); }));
    EXPECT_EQ(body.size(), body.bytes().size());
}

TEST(Request, EndsARecordBeforeItsFirstNull) {
    const std::string file = "--AaB03x\r\nContent-Disposition: form-data; name=\"";
    const struct {
        void (*add)(TWLWebRequest&);
        std::size_t members;
        std::string part;
    } cases[] = {
        {[](TWLWebRequest& r) { r.addValueForFormField(nullptr, "f"); }, 0, ""},
        {[](TWLWebRequest& r) { r.addValueForFormField("v", std::nullopt); }, 1,
         file + "(null)\"\r\nContent-Type: text/plain\r\n\r\nv\r\n"},
        {[](TWLWebRequest& r) { r.addData(Data("B"), std::nullopt, "x.zip", "f"); }, 2,
         file + "f\"; filename=\"(null)\"\r\nContent-Type: application/octet-stream\r\n\r\nB\r\n"},
        {[](TWLWebRequest& r) { r.addData(Data("B"), "a/b", std::nullopt, "f"); }, 3,
         file +
             "f\"; filename=\"(null)\"\r\nContent-Type: a/b\r\nContent-Transfer-Encoding: binary\r\n\r\nB\r\n"},
        {[](TWLWebRequest& r) { r.addData(Data(""), "", "", ""); }, 4,
         file + "\"; filename=\"\"\r\nContent-Type: \r\nContent-Transfer-Encoding: binary\r\n\r\n\r\n"},
        {[](TWLWebRequest& r) { r.addValueForFormField(7, "number"); }, 3, ""},
        {[](TWLWebRequest& r) { r.addValueForFormField("a\"b\r\n", "\"q\""); }, 3,
         file + "\"q\"\"\r\nContent-Type: text/plain\r\n\r\na\"b\r\n\r\n"},
    };
    for (const auto& [add, members, part] : cases) {
        TWLWebRequest request("POST");
        add(request);
        EXPECT_EQ(request.formFields()->front().size(), members);
        EXPECT_EQ(partOf(request), part);
    }
    EXPECT_FALSE(TWLWebRequest("POST").formData());
}

TEST(Request, AddsTheMembersOfDictionariesBehindWhatIsThere) {
    const auto request = postRequest();
    request->setFormData({{"a", "1"}});
    request->setFormData({{"a", "2"}, {"skipped", Value::Array{"x"}}});
    request->addValueForFormFromDict({{"k", "v"}});
    request->addValueForFormFromDict({{"k", "w"}}, "p");
    std::vector<support::FormPart> names;
    for (const auto& part :
         support::parseForm("multipart/form-data; boundary=AaB03x", request->formData()->bytes()))
        names.push_back({part.name, "", "", part.content});
    EXPECT_EQ(names,
              (std::vector<support::FormPart>{
                  {"a", "", "", "1"}, {"a", "", "", "2"}, {"[k]", "", "", "v"}, {"p[k]", "", "", "w"}}));
}

TEST(Response, TellsHowTheExchangeEnded) {
    TWLWebResponse response;
    EXPECT_EQ(response.description(),
              "{request: (null), status: 0, body: (null), error: (null), headers: (null)}");
    for (const auto& [status, successful] :
         {std::pair(200, true), {299, true}, {199, false}, {300, false}, {0, false}}) {
        response.setStatusCode(static_cast<std::uint64_t>(status));
        EXPECT_EQ(response.wasSuccessful(), successful) << status;
    }
    response.setStatusCode(201);
    response.setResponseHeaders(platform::HTTPHeaders{{"A", "b"}});
    response.setBody(Value::Array{1, nullptr});
    response.setError(platform::Error{"D", -1, {}});
    EXPECT_FALSE(response.wasSuccessful());
    EXPECT_EQ(
        response.description(),
        "{request: (null), status: 201, body: (1, (null)), error: Error Domain=D Code=-1, headers: {\"A\" = \"b\"}}");
}

TEST(Response, AppendsInOrderWithoutChangingWhatItGaveOut) {
    TWLWebResponse response;
    for (const char* piece : {"a", "b", "c"})
        response.appendData(Data(piece));
    const Data before = response.responseData();
    response.appendData(Data("d"));
    EXPECT_EQ(before, Data("abc"));
    EXPECT_EQ(response.responseData(), Data("abcd"));
}

TEST(JSON, DecodesObjectsAndArraysOnly) {
    EXPECT_EQ(
        TWLWebClient::decodeJSON(R"({"a": [1, -2.5, true, null, "\u00e9", 18446744073709551615], "a": {}})"),
        Value(Value::Dictionary{{"a", Value::Dictionary{}}}));
    EXPECT_EQ(TWLWebClient::decodeJSON(R"([1, -2.5, true, null, "\u00e9", 18446744073709551615, {"k": []}])"),
              Value(Value::Array{1, -2.5, true, nullptr, "\u00e9", 18446744073709551615.0,
                                 Value::Dictionary{{"k", Value::Array{}}}}));
    const auto nested = [](std::size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    EXPECT_TRUE(TWLWebClient::decodeJSON(nested(512)).as<Value::Array>());
    for (const std::string& bad :
         {nested(513), std::string(1 << 20, '['), std::string("1"), std::string("\"a\""), std::string(""),
          std::string("[1"), std::string("[\"\xff\"]"), std::string("[1e999]"), std::string("[] []"),
          std::string("{\"a\" 1}")})
        EXPECT_TRUE(TWLWebClient::decodeJSON(bad).isNull()) << bad.substr(0, 20);
}

TEST(ProgrammingErrors, EndTheProcessWithTheirExpression) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string requestFile = ", file apple/TWLWebClient/TWLWebClient/TWLWebRequest\\.";
    const std::string transactionFile = ", file apple/TWLWebClient/TWLWebClient/TWLWebClientTransaction\\.";
    EXPECT_DEATH(TWLWebRequest::requestWithMethod("GET", std::nullopt),
                 R"(\(path\), function \+\[TWLWebRequest requestWithMethod:path:\])" + requestFile);
    EXPECT_DEATH(TWLWebRequest(std::nullopt),
                 R"(\(method\), function -\[TWLWebRequest initWithMethod:\])" + requestFile);
    EXPECT_DEATH(TWLWebClient::encodeJSON(1), R"(\(0 && "encodeJSON: isn't implemented yet"\), function )"
                                              R"(\+\[TWLWebClient encodeJSON:\], file .*/TWLWebClient\.)");
    const auto transaction = [](bool hasRequest = true) {
        const auto request = hasRequest ? std::make_shared<TWLWebRequest>("GET") : nullptr;
        return TWLWebClientTransaction::transactionWithRequest(request);
    };
    const auto ignore = [](const auto&) {
    };
    EXPECT_DEATH(transaction()->complete(),
                 R"(\(_completionHandler\), function .*complete\])" + transactionFile);
    EXPECT_DEATH(transaction(false)->syncStartWithCompletionHandler(ignore),
                 R"(\(request\), function -\[TWLWebClientTransaction syncStartConnection\])" +
                     transactionFile);
    EXPECT_DEATH(transaction(false)->startConnection(),
                 R"(\(request\), function .*startConnection\])" + transactionFile);
    EXPECT_DEATH(
        {
            const auto twice = transaction();
            twice->startConnection();
            twice->startConnection();
        },
        R"(\(_connection == nil\), function .*startConnection\])" + transactionFile);
    EXPECT_DEATH(
        {
            const auto both = transaction();
            both->startConnection();
            both->syncStartWithCompletionHandler(ignore);
        },
        R"(\(!_connection\), function .*syncStartWithCompletionHandler:\])" + transactionFile);
    EXPECT_DEATH(
        {
            const auto failing = transaction();
            platform::URLConnection connection({}, failing);
            failing->connection(connection, std::optional<platform::Error>());
        },
        R"(\(error\), function .*connection:didFailWithError:\])" + transactionFile);
}

TEST(ProgrammingErrors, ASynchronousStartFromItsOwnQueueDoesNotHang) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TWLWebClient client(*platform::URL::parse("http://127.0.0.1:1/"));
    const auto request = [] {
        return TWLWebRequest::requestWithMethod("GET", "/");
    };
    EXPECT_DEATH(client.syncStartRequest(
                     request(), [&](const auto&) { client.syncStartRequest(request(), [](const auto&) {}); }),
                 "queue .*\\.rest-client waits for the same queue");
}

} // namespace
