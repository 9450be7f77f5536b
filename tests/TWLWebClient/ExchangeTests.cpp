#include "ExchangeFixture.h"
#include "platform/dispatch/DispatchQueue.h"
#include "support/HTTPServer.h"
#include "support/ScriptedServer.h"

#include <atomic>

using namespace platform;
using namespace support;
using testing::HasSubstr;
using testing::StartsWith;
using Peer = ScriptedServer::Peer;

namespace {

INSTANTIATE_BOTH_ROADS(Exchange);

TEST_P(Exchange, KeepsRequestAndAnswerUnchanged) {
    HTTPRequest received;
    const HTTPServer server([&](const HTTPRequest& request) {
        received = request;
        return HTTPAnswer{201, request.body};
    });
    const auto request = TWLWebRequest::requestWithMethod("POST", "v1/x");
    request->setParameters(TWLWebRequest::Parameters{{"a b", "x&y"}, {"p", "100%"}});
    request->addValueForHTTPHeaderField("5", "Content-Length");
    for (const std::size_t size : {0u, 1u, 70'000u, 3'000'000u})
        request->addData(Data(std::string(size, static_cast<char>('a' + size % 7))), "a/b", "n", "f");
    const std::string body = request->formData()->bytes();
    const auto response = exchange(server.url("/api/"), request);
    EXPECT_EQ(errorOf(*response), "");
    EXPECT_EQ(response->requestURL(), request->fullURL());
    EXPECT_EQ(received.method + " " + received.target, "POST /api/v1/x?a%20b=x%26y&p=100%25");
    EXPECT_TRUE(received.body == body);
    EXPECT_EQ(received.get_header_value("Content-Length"), std::to_string(body.size()));
    EXPECT_EQ(received.get_header_value("Expect") + received.get_header_value("Transfer-Encoding"), "");
    EXPECT_TRUE(response->responseHeaders()->contains("Content-Encoding")) << "compressed in transit";
    EXPECT_TRUE(response->body() == Value(Data(body)));
}

TEST_P(Exchange, EndsAtTheLimitOfTheAnswer) {
    const std::string body(3'000'000, 'a');
    const HTTPServer server([&](const HTTPRequest&) { return HTTPAnswer{201, body}; });
    const auto request = TWLWebRequest::requestWithMethod("GET", "");
    request->setAnswerLimit(body.size());
    EXPECT_EQ(errorOf(*exchange(server.url(), request)), "");
    request->setAnswerLimit(body.size() - 1);
    const auto response = exchange(server.url(), request);
    EXPECT_THAT(errorOf(*response), failure(URLErrorCode::dataLengthExceedsMaximum, "is longer than"));
    EXPECT_EQ(response->statusCode(), 201u);
    EXPECT_EQ(response->responseData().size(), body.size() - 1) << "the bytes up to the limit";
}

TEST_P(Exchange, ChecksTheExpectedStatus) {
    const HTTPServer server([](const HTTPRequest&) { return HTTPAnswer{201}; });
    const auto request = TWLWebRequest::requestWithMethod("GET", "");
    EXPECT_EQ(errorOf(*exchange(server.url(), request, 201)), "");
    const auto other = exchange(server.url(), request, 200);
    EXPECT_EQ(errorOf(*other), "Error Domain=TWLWebClientErrorDomain Code=-1");
    EXPECT_EQ(other->statusCode(), 201u);
    TWLWebClient(*URL::parse(server.url())).syncStartRequest(request, 200, nullptr);
}

const std::string unusualFields = "X-A: 1\r\nx-a:  2 \t\r\nEmpty:\r\nFolded: 1\r\n 2\r\n\t3 \r\n"
                                  "UTF-8: \u00e9\r\nISO: \xe9\r\n";

void echoHead(Peer& peer) {
    const std::string head = peer.readUntil("\r\n\r\n");
    peer.send("HTTP/1.1 103 Early Hints\r\nX-A: 0\r\n\r\nHTTP/1.1 200 OK\r\n" + unusualFields +
              "Content-Length: " + std::to_string(head.size()) + "\r\n\r\n");
    if (!head.starts_with("HEAD"))
        peer.send(head);
}

TEST_P(Exchange, SendsTheRightHeadForEachMethod) {
    const ScriptedServer server(&echoHead);
    for (const std::string method : {"GET", "POST", "PUT", "PATCH", "DELETE", "HEAD", "PURGE"}) {
        const auto request = TWLWebRequest::requestWithMethod(method, "?q");
        request->setParameters(TWLWebRequest::Parameters{{"p", "1"}});
        request->addValueForHTTPHeaderField("replaced", "X-Empty");
        request->addValueForHTTPHeaderField(" ", "X-Empty");
        request->addHeaders({{"x-empty", "a default"}});
        const auto response = exchange("http://user:password@" + server.url("/a/../b").substr(7), request);
        EXPECT_EQ(errorOf(*response), "") << method;
        HTTPHeaders fields = *response->responseHeaders();
        fields.erase("Content-Length");
        EXPECT_EQ(fields, (HTTPHeaders{{"X-A", "1, 2"},
                                       {"Empty", ""},
                                       {"Folded", "1 2 3"},
                                       {"UTF-8", "\u00e9"},
                                       {"ISO", "\u00e9"}}));
        if (method == "HEAD")
            continue;
        const std::string head(response->responseData().bytes());
        EXPECT_THAT(head, StartsWith(method + " /a/../b?q?p=1 HTTP/1.1\r\n"));
        const bool hasLength = head.find("\r\nContent-Length: 0\r\n") != std::string::npos;
        EXPECT_EQ(hasLength, method[0] == 'P' && method != "PURGE") << head;
        EXPECT_THAT(head, HasSubstr("\r\nX-Empty:\r\n"));
        for (const char* unwanted : {"User-Agent", "Expect", "Content-Type", "Authorization"})
            EXPECT_EQ(head.find(unwanted), std::string::npos) << head;
    }
}

ScriptedServer::Script saying(const std::string& answer) {
    return [answer](Peer& peer) {
        peer.readUntil("\r\n\r\n");
        peer.send(answer);
    };
}

TEST_P(Exchange, DecodesAnswersByStatusAndContentType) {
    const std::string plist = "<plist version=\"1.0\"><dict><key>k</key><integer>1</integer></dict></plist>";
    const Value dictionary = Value::Dictionary{{"k", 1}};
    const struct {
        HTTPAnswer answer;
        // Of asynchronous exchanges: synchronous ones decode nothing.
        Value body;
        ErrorMatcher error = "";
    } cases[] = {
        {{200, "{\"k\": 1}", "application/json; x=y"}, dictionary},
        {{200, "{", "application/json"}, nullptr},
        {{200, "{}", "Application/JSON"}, Data("{}")},
        {{200, plist, "application/x-plist, application/json"}, dictionary},
        {{200, "no", "application/x-plist"}, nullptr, StartsWith("Error Domain=")},
        {{302, "no", "text/plain", {{"Location", "/other"}}}, Data("no")},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.answer.contentType + one.answer.body);
        const HTTPServer server([&](const HTTPRequest&) { return one.answer; });
        const auto response = get(server.url());
        EXPECT_EQ(response->statusCode(), one.answer.status);
        EXPECT_EQ(response->body(), isAsynchronous() ? one.body : Data(one.answer.body));
        EXPECT_THAT(errorOf(*response), isAsynchronous() ? one.error : "");
        EXPECT_EQ(response->responseData(), Data(one.answer.body));
    }
}

TEST_P(Exchange, FailsIfTheServerDemandsAKnownAuthentication) {
    for (const HTTPAnswer& answer :
         {HTTPAnswer{401, "no", "text/plain", {{"WWW-Authenticate", "Bearer x, Basic realm=x"}}},
          HTTPAnswer{407, "no", "text/plain", {{"Proxy-Authenticate", "Basic realm=x"}}}}) {
        const HTTPServer server([&](const HTTPRequest&) { return answer; });
        const auto response = get(server.url());
        EXPECT_EQ(errorOf(*response), isAsynchronous() ? challenge : "");
        EXPECT_EQ(response->statusCode(), isAsynchronous() ? 0 : answer.status);
        EXPECT_EQ(response->responseData(), Data(isAsynchronous() ? "" : "no"));
    }
}

const std::string ok = "HTTP/1.1 200 OK\r\n";

ScriptedServer::Script sayingCoded(const std::string& coding, const std::string& bytes) {
    return saying(ok + "Content-Encoding: " + coding + "\r\nContent-Length: " + std::to_string(bytes.size()) +
                  "\r\n\r\n" + bytes);
}

void sayEndlessHead(Peer& peer) {
    for (peer.send(ok); peer.send("X-A: " + std::string(10'000, 'a') + "\r\n");) {
    }
}

TEST_P(Exchange, ReportsInvalidAnswers) {
    // "ab" in gzip, up to its checksum.
    const std::string cut("\x1f\x8b\b\0\0\0\0\0\0\x03\1\2\0\xfd\xff\x61\x62", 17);
    constexpr URLErrorCode lost = URLErrorCode::networkConnectionLost;
    constexpr URLErrorCode bad = URLErrorCode::badServerResponse;
    constexpr URLErrorCode undecodable = URLErrorCode::cannotDecodeContentData;
    const struct {
        const char* name;
        ScriptedServer::Script script;
        std::optional<URLErrorCode> error;
        // What is kept of the answer.
        std::string body;
        std::uint64_t status;
    } cases[] = {
        {"no answer", [](Peer&) {}, lost, "", 0},
        {"half a head", saying(ok + "Content-Le"), lost, "", 0},
        {"another protocol", saying("\x16\x03 what?\r\n\r\n"), bad, "", 0},
        {"an endless head", &sayEndlessHead, bad, "", 0},
        {"half a body", saying(ok + "Content-Length: 9\r\n\r\nabc"), lost, "abc", 200},
        {"half a chunk", saying(ok + "Transfer-Encoding: chunked\r\n\r\n9\r\nabc"), lost, "abc", 200},
        {"no gzip", sayingCoded("gzip", "hello"), undecodable, "", 200},
        {"half a gzip stream", sayingCoded("gzip", cut), undecodable, "ab", 200},
        {"an unknown coding", sayingCoded("br", "ab"), undecodable, "", 200},
        {"bytes after the body", saying(ok + "Content-Length: 3\r\n\r\nabcdef"), {}, "abc", 200},
        {"bytes after the last chunk",
         saying(ok + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\ndef"),
         {},
         "abc",
         200},
    };
    for (const auto& [name, script, error, body, status] : cases) {
        SCOPED_TRACE(name);
        const ScriptedServer server(script);
        const auto response = get(server.url());
        EXPECT_THAT(errorOf(*response), error ? failure(*error, server.url("").substr(7)) : "");
        EXPECT_EQ(response->responseData(), Data(body));
        EXPECT_EQ(response->statusCode(), status);
    }
}

TEST_P(Exchange, ReportsRequestsThatCannotBeSent) {
    std::atomic<int> connections = 0;
    const ScriptedServer server([&](Peer&) { ++connections; }), insecure([](Peer&) {});
    const ErrorMatcher refused = failure(URLErrorCode::unknown, "The request to 127.0.0.1:");
    const struct {
        const char* name;
        ErrorMatcher error;
        std::string path, value = "v", field = "A", method = "GET";
    } cases[] = {
        {"path", failure(URLErrorCode::badURL), "a b"},
        {"scheme", failure(URLErrorCode::unsupportedURL), "ftp://h/"},
        {"host", failure(URLErrorCode::cannotFindHost, "no-such-host.invalid"),
         "http://no-such-host.invalid/"},
        {"port", failure(URLErrorCode::cannotConnectToHost, "refused"), ListeningPort().url()},
        {"no TLS", failure(URLErrorCode::secureConnectionFailed, "127.0.0.1"),
         "https" + insecure.url().substr(4)},
        {"line break in a value", refused, "", "a\r\nB: c"},
        {"line break in a name", refused, "", "a", "A\r\nB"},
        {"method", refused, "", "a", "A", "GET / HTTP/1.1\r\nA:"},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        const auto request = TWLWebRequest::requestWithMethod(one.method, one.path);
        request->addValueForHTTPHeaderField(one.value, one.field);
        EXPECT_THAT(errorOf(*exchange(server.url(), request, 200)), one.error);
    }
    EXPECT_EQ(connections, 0);
}

TEST(Client, ResolvesPathsAndSetsHeaders) {
    const HTTPServer server([](const HTTPRequest& request) {
        return HTTPAnswer{200, request.method + " " + request.target + " " +
                                   request.get_header_value("Accept") + " " +
                                   request.get_header_value("Content-Type")};
    });
    std::atomic<int> left = 4;
    const auto expecting = [&](const ErrorMatcher& answer) {
        return [&left, answer](const std::shared_ptr<TWLWebResponse>& response) {
            EXPECT_THAT(errorOf(*response).append(response->responseData().bytes()), answer);
            EXPECT_TRUE(DispatchQueue::global().isCurrent());
            if (--left == 0)
                RunLoop::mainRunLoop().stop();
        };
    };
    TWLWebClient other(*URL::parse("http://base.invalid/api/")), client(*URL::parse(server.url("/api/")));
    other.addValueForHeader("text/plain", "accept");
    other.getURL(*URL::parse(server.url("/exact?x")), expecting("GET /exact?x text/plain "));
    const std::string both = "application/json, application/x-plist";
    client.getPath("../up", expecting("GET /up " + both + " "));
    client.postFormData({{"k", "v"}}, "/form",
                        expecting("POST /form " + both + " multipart/form-data; boundary=AaB03x"));
    client.getPath("not a path", expecting(failure(URLErrorCode::badURL)));
    EXPECT_TRUE(RunLoop::mainRunLoop().run(std::chrono::seconds(60)));
}

TEST(Client, RunsAHundredExchangesConcurrently) {
    const ScriptedServer server(&echoHead);
    TWLWebClient client(*URL::parse(server.url()));
    std::atomic<int> left = 100;
    for (int i = left; i > 0; --i) {
        const std::string path = "/" + std::to_string(i);
        client.getPath(path, [&, path](const std::shared_ptr<TWLWebResponse>& response) {
            EXPECT_THAT(response->responseData().bytes(), StartsWith("GET " + path + " HTTP"));
            if (--left == 0)
                RunLoop::mainRunLoop().stop();
        });
    }
    EXPECT_TRUE(RunLoop::mainRunLoop().run(std::chrono::seconds(120)));
    while (!client.connections().empty())
        std::this_thread::yield();
}

} // namespace
