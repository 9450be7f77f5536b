#include "Roads.h"
#include "TWLWebClient/TWLWebClientTransaction.h"
#include "platform/DispatchQueue.h"
#include "support/HTTPServer.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"

#include <stdlib.h>

#include <atomic>
#include <mutex>
#include <thread>

using platform::Data;
using platform::DispatchQueue;
using platform::URL;
using platform::URLErrorCode;
using platform::Value;
using support::HTTPAnswer;
using support::HTTPRequest;
using support::HTTPServer;
using support::ScriptedServer;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class Exchange : public testing::TestWithParam<Road> {
protected:
    Exchange() {
        // The servers are on this machine, whatever the environment says.
        setenv("no_proxy", "127.0.0.1", 1);
    }

    std::shared_ptr<TWLWebResponse> exchange(const std::string& url, std::shared_ptr<TWLWebRequest> request) {
        TWLWebClient client(*URL::parse(url));
        const auto response = send(GetParam(), client, request);
        while (!client.connections().empty())
            std::this_thread::yield();
        return response;
    }
    std::shared_ptr<TWLWebResponse> get(const std::string& url) {
        return exchange(url, TWLWebRequest::requestWithMethod("GET", ""));
    }
    bool isAsynchronous() const { return GetParam() == Road::asynchronous; }
};
INSTANTIATE_TEST_SUITE_P(Roads, Exchange, testing::Values(Road::synchronous, Road::asynchronous), nameOf);

void expectError(const TWLWebResponse& response, std::string_view domain, std::int64_t code) {
    ASSERT_TRUE(response.error()) << "status " << response.statusCode();
    EXPECT_EQ(response.error()->domain, domain) << response.error()->description();
    EXPECT_EQ(response.error()->code, code) << response.error()->description();
}
void expectError(const TWLWebResponse& response, URLErrorCode code) {
    expectError(response, platform::urlErrorDomain, static_cast<std::int64_t>(code));
    EXPECT_THAT(reasonOf(response), testing::EndsWith("."));
}

TEST_P(Exchange, SendsWhatTheRequestSaysAndNothingElse) {
    HTTPRequest received;
    HTTPServer server([&](const HTTPRequest& request) {
        received = request;
        return HTTPAnswer{201, "stored", "text/plain", {{"X-Answer", "1"}}};
    });
    const auto request = TWLWebRequest::requestWithMethod("POST", "v1/x");
    request->setParameters(TWLWebRequest::Parameters{{"a b", "x&y"}});
    request->addValueForHTTPHeaderField("run/149", "User-Agent");
    request->addValueForHTTPHeaderField("5", "Content-Length");
    request->addValueForFormField("1", "a");
    const auto response = exchange(server.url("/api/"), request);
    EXPECT_EQ(response->error(), std::nullopt);
    EXPECT_EQ(response->statusCode(), 201u);
    EXPECT_EQ(response->body(), Value(Data("stored")));
    EXPECT_EQ(response->responseHeaders()->at("x-answer"), "1");
    EXPECT_EQ(response->requestURL(), request->fullURL());
    EXPECT_EQ(received.method + " " + received.target, "POST /api/v1/x?a%20b=x%26y");
    EXPECT_EQ(received.body, request->formData()->bytes());
    EXPECT_EQ(received.header("Content-Length"), std::to_string(received.body.size()));
    EXPECT_EQ(received.header("Accept"), "application/json, application/x-plist");
    EXPECT_EQ(received.header("User-Agent"), "run/149");
    EXPECT_FALSE(received.headers.contains("Expect"));
    EXPECT_FALSE(received.headers.contains("Transfer-Encoding"));
}

TEST_P(Exchange, SendsEveryMethodWithTheHeadThatBelongsToIt) {
    ScriptedServer server([](ScriptedServer::Peer& peer) {
        const std::string head = peer.readUntil("\r\n\r\n");
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(head.size()) + "\r\n\r\n");
        if (!head.starts_with("HEAD"))
            peer.send(head);
    });
    for (const char* method : {"GET", "POST", "PUT", "PATCH", "DELETE", "HEAD", "PURGE"}) {
        const auto request = TWLWebRequest::requestWithMethod(method, "?q");
        request->addValueForHTTPHeaderField(" ", "X-Empty");
        const auto response = exchange(server.url("/a/../b"), request);
        EXPECT_EQ(response->error(), std::nullopt) << method;
        const std::string head(response->responseData().bytes());
        if (method == std::string("HEAD"))
            continue;
        EXPECT_THAT(head, StartsWith(method + std::string(" /a/../b?q HTTP/1.1\r\n")));
        const bool hasLength = head.find("\r\nContent-Length: 0\r\n") != std::string::npos;
        EXPECT_EQ(hasLength, method[0] == 'P' && method != std::string("PURGE")) << head;
        EXPECT_THAT(head, HasSubstr("\r\nX-Empty:\r\n"));
        for (const char* unwanted : {"User-Agent", "Expect", "Content-Type"})
            EXPECT_EQ(head.find(unwanted), std::string::npos) << head;
    }
}

TEST_P(Exchange, DecodesTheBodyByItsTypeOnTheAsynchronousRoadOnly) {
    constexpr const char* plist =
        "<plist version=\"1.0\"><dict><key>k</key><integer>1</integer></dict></plist>";
    const Value dictionary = Value::Dictionary{{"k", 1}};
    const struct {
        const char* type;
        const char* content;
        Value decoded;
        bool hasError = false;
    } cases[] = {
        {"application/json; charset=utf-8", R"({"k": 1})", dictionary},
        {"application/json", "", nullptr},
        {"application/json", "{", nullptr},
        {"Application/JSON", "{}", Data("{}")},
        {"application/x-plist, application/json", plist, dictionary},
        {"application/x-plist", "no list", nullptr, true},
        {"text/html", "<p>", Data("<p>")},
    };
    for (const auto& one : cases) {
        HTTPServer server([&](const HTTPRequest&) { return HTTPAnswer{200, one.content, one.type, {}}; });
        const auto response = get(server.url());
        const bool isEmpty = *one.content == '\0';
        EXPECT_EQ(response->body(), isAsynchronous() ? one.decoded
                                    : isEmpty        ? Value()
                                                     : Value(Data(one.content)))
            << one.type;
        EXPECT_EQ(response->error().has_value(), isAsynchronous() && one.hasError) << one.type;
        EXPECT_EQ(response->responseData(), Data(one.content));
    }
}

TEST_P(Exchange, TakesTheAnswerAsItIs) {
    HTTPServer redirecting([&](const HTTPRequest&) {
        return HTTPAnswer{302, "elsewhere", "text/plain", {{"Location", "/other"}}};
    });
    EXPECT_EQ(get(redirecting.url())->statusCode(), 302u);

    const std::string text(100'000, 'x');
    HTTPServer compressing([&](const HTTPRequest&) { return HTTPAnswer{200, text, "text/plain", {}}; });
    const auto compressed = get(compressing.url());
    EXPECT_EQ(compressed->responseHeaders()->contains("Content-Encoding"), true);
    EXPECT_EQ(compressed->responseData(), Data(text));

    ScriptedServer odd([](ScriptedServer::Peer& peer) {
        peer.readUntil("\r\n\r\n");
        peer.send("HTTP/1.1 103 Early Hints\r\nX-Early: 1\r\n\r\nHTTP/1.1 200 OK\r\nX-A: 1\r\nx-a:  2 \r\n"
                  "X-Folded: a\r\n  b\r\nX-Latin: \xe9\r\nTransfer-Encoding: chunked\r\n\r\n"
                  "2\r\nab\r\n1\r\nc\r\n0\r\nX-Trailer: 1\r\n\r\n");
    });
    const auto response = get(odd.url());
    EXPECT_EQ(response->error(), std::nullopt);
    EXPECT_EQ(response->responseData(), Data("abc"));
    EXPECT_EQ(
        *response->responseHeaders(),
        (platform::HTTPHeaders{
            {"X-A", "1, 2"}, {"X-Folded", "a b"}, {"X-Latin", "\u00e9"}, {"Transfer-Encoding", "chunked"}}));
}

TEST_P(Exchange, RefusesRequestsThatCannotBeSent) {
    std::atomic<int> connections = 0;
    ScriptedServer server([&](ScriptedServer::Peer&) { ++connections; });
    const auto sent = [&](auto change) {
        auto request = TWLWebRequest::requestWithMethod("GET", "/");
        change(*request);
        return exchange(server.url(), request);
    };
    expectError(*sent([](TWLWebRequest& r) { r.setPath("a b"); }), URLErrorCode::badURL);
    expectError(*sent([](TWLWebRequest& r) { r.setPath("http:///x"); }), URLErrorCode::badURL);
    expectError(*sent([](TWLWebRequest& r) { r.setPath("ftp://h/"); }), URLErrorCode::unsupportedURL);
    for (const auto& [value, field] : {std::pair<std::string, std::string>("a\r\nB: c", "A"),
                                       {"a\n", "A"},
                                       {std::string("a\0b", 3), "A"},
                                       {"a", "A\r\nB"},
                                       {"a", "A: b"},
                                       {"a", ""}}) {
        const auto response = sent([&](TWLWebRequest& r) { r.addValueForHTTPHeaderField(value, field); });
        expectError(*response, URLErrorCode::unknown);
        EXPECT_THAT(reasonOf(*response), StartsWith("The request to 127.0.0.1:"));
    }
    expectError(*sent([](TWLWebRequest& r) { r.setMethod("GET / HTTP/1.1\r\nA:"); }), URLErrorCode::unknown);
    EXPECT_EQ(connections, 0);
}

TEST_P(Exchange, ReportsBrokenAnswersWithWhatHadArrived) {
    using Peer = ScriptedServer::Peer;
    const auto saying = [](std::string answer) {
        return [answer = std::move(answer)](Peer& peer) {
            peer.readUntil("\r\n\r\n");
            peer.send(answer);
        };
    };
    const std::string head = "HTTP/1.1 200 OK\r\n";
    const struct {
        const char* name;
        ScriptedServer::Script script;
        URLErrorCode code;
        std::uint64_t status = 0;
        std::string data = "";
    } cases[] = {
        {"closes at once", [](Peer&) {}, URLErrorCode::networkConnectionLost},
        {"closes unanswered", saying(""), URLErrorCode::networkConnectionLost},
        {"resets",
         [](Peer& peer) {
             peer.readUntil("\r\n\r\n");
             peer.reset();
         },
         URLErrorCode::networkConnectionLost},
        {"closes in the head", saying(head + "Content-Le"), URLErrorCode::networkConnectionLost},
        {"garbage", saying("\x16\x03 what?\r\n\r\n"), URLErrorCode::badServerResponse},
        {"endless line", saying("HTTP/1.1 200 " + std::string(1 << 20, 'a')),
         URLErrorCode::badServerResponse},
        {"endless head",
         [&](Peer& peer) {
             peer.send(head);
             while (peer.pause(std::chrono::milliseconds(0)))
                 peer.send("X-A: " + std::string(10'000, 'a') + "\r\n");
         },
         URLErrorCode::badServerResponse},
        {"closes in the body", saying(head + "Content-Length: 9\r\n\r\nabc"),
         URLErrorCode::networkConnectionLost, 200, "abc"},
        {"closes in a chunk", saying(head + "Transfer-Encoding: chunked\r\n\r\n9\r\nabc"),
         URLErrorCode::networkConnectionLost, 200, "abc"},
        {"more than announced", saying(head + "Content-Length: 3\r\n\r\nabcdef"),
         URLErrorCode::badServerResponse, 200, "abc"},
        {"no gzip stream", saying(head + "Content-Encoding: gzip\r\nContent-Length: 5\r\n\r\nhello"),
         URLErrorCode::cannotDecodeContentData, 200},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        ScriptedServer server(one.script);
        const auto response = get(server.url());
        expectError(*response, one.code);
        EXPECT_THAT(reasonOf(*response), HasSubstr("127.0.0.1:" + std::to_string(server.port())));
        EXPECT_EQ(response->statusCode(), one.status);
        EXPECT_EQ(response->responseData(), Data(one.data));
        EXPECT_EQ(response->body(), one.data.empty() ? Value() : Value(Data(one.data)));
    }
}

TEST_P(Exchange, ReportsHostsThatCannotBeReached) {
    const std::string closed = [] {
        return ScriptedServer([](auto&) {}).url();
    }();
    const auto refused = get(closed);
    expectError(*refused, URLErrorCode::cannotConnectToHost);
    EXPECT_THAT(reasonOf(*refused), HasSubstr("Connection refused"));
    const auto unknown = get("http://no-such-host.invalid/");
    expectError(*unknown, URLErrorCode::cannotFindHost);
    EXPECT_THAT(reasonOf(*unknown), HasSubstr("no-such-host.invalid"));
}

TEST_P(Exchange, TrustsOnlyCertificatesThatAreValidForTheHost) {
    const support::TemporaryFolder folder;
    const auto statusOver = [&](const support::CertificateDescription& description, bool isTrusted,
                                bool handlerAnswer = true) {
        const support::Certificate certificate = support::makeCertificate(description);
        HTTPServer server([](const HTTPRequest&) { return HTTPAnswer{}; }, {certificate, ""});
        setenv("SSL_CERT_FILE", folder.write("extra.pem", certificate.certificate).c_str(), 1);
        if (!isTrusted)
            unsetenv("SSL_CERT_FILE");
        int asked = 0;
        const auto request = TWLWebRequest::requestWithMethod("GET", "");
        request->setProtectionSpaceHandler([&](const platform::URLProtectionSpace& space) {
            EXPECT_EQ(space.serverTrust->host, "127.0.0.1");
            EXPECT_THAT(DispatchQueue::currentLabel(), testing::EndsWith(".web-transaction"));
            ++asked;
            return handlerAnswer;
        });
        const auto response = exchange(server.url(), request);
        EXPECT_EQ(asked, isAsynchronous() ? 1 : 0);
        return response;
    };
    EXPECT_EQ(statusOver({}, true)->statusCode(), 200u);
    EXPECT_EQ(statusOver({}, true, false)->statusCode(), 200u);
    expectError(*statusOver({}, false), URLErrorCode::serverCertificateUntrusted);
    expectError(*statusOver({"localhost"}, true), URLErrorCode::serverCertificateUntrusted);
    expectError(*statusOver({"127.0.0.1", -7200, -3600}, true), URLErrorCode::serverCertificateHasBadDate);
    expectError(*statusOver({"127.0.0.1", 3600, 7200}, true), URLErrorCode::serverCertificateNotYetValid);

    HTTPServer plain([](const HTTPRequest&) { return HTTPAnswer{}; });
    expectError(*get("https" + plain.url().substr(4)), URLErrorCode::secureConnectionFailed);
    setenv("SSL_CERT_FILE", folder.path("missing.pem").c_str(), 1);
    HTTPServer secure([](const HTTPRequest&) { return HTTPAnswer{}; }, {support::makeCertificate(), ""});
    const auto unreadable = get(secure.url());
    expectError(*unreadable, URLErrorCode::secureConnectionFailed);
    EXPECT_THAT(reasonOf(*unreadable), HasSubstr("missing.pem"));
}

TEST_P(Exchange, EndsChallengesThatItCannotAnswer) {
    const struct {
        int status;
        platform::HTTPHeaders headers;
        bool isChallenge;
    } cases[] = {{401, {{"WWW-Authenticate", "Basic realm=\"x\""}}, true},
                 {401, {{"WWW-Authenticate", "Bearer realm=\"a, basic b\", digest realm=x"}}, true},
                 {401, {{"WWW-Authenticate", "Bearer realm=\"a, basic b\", basic=1"}}, false},
                 {401, {}, false},
                 {407, {{"Proxy-Authenticate", "Basic realm=\"x\""}}, true},
                 {403, {{"WWW-Authenticate", "Basic realm=\"x\""}}, false}};
    for (const auto& one : cases) {
        HTTPServer server([&](const HTTPRequest&) {
            return HTTPAnswer{one.status, "no", "text/plain", one.headers};
        });
        const auto response = get(server.url());
        if (isAsynchronous() && one.isChallenge) {
            expectError(*response, TWLWebClientErrorDomain, -2);
            EXPECT_EQ(response->statusCode(), 0u);
        } else {
            EXPECT_EQ(response->error(), std::nullopt);
            EXPECT_EQ(response->statusCode(), static_cast<std::uint64_t>(one.status));
        }
    }
    const support::TemporaryFolder folder;
    const support::Certificate certificate = support::makeCertificate();
    HTTPServer demanding([](const HTTPRequest&) { return HTTPAnswer{}; },
                         {certificate, certificate.certificate});
    setenv("SSL_CERT_FILE", folder.write("extra.pem", certificate.certificate).c_str(), 1);
    const auto response = get(demanding.url());
    if (isAsynchronous())
        expectError(*response, TWLWebClientErrorDomain, -2);
    else
        expectError(*response, URLErrorCode::clientCertificateRequired);
}

TEST_P(Exchange, AProxyThatWantsAPasswordForATunnelIsAChallengeToo) {
    ScriptedServer proxy([](ScriptedServer::Peer& peer) {
        peer.readUntil("\r\n\r\n");
        peer.send("HTTP/1.1 407 Who?\r\nProxy-Authenticate: Basic realm=\"p\"\r\nContent-Length: 0\r\n\r\n");
    });
    setenv("https_proxy", proxy.url().c_str(), 1);
    const auto response = get("https://service.invalid/");
    unsetenv("https_proxy");
    if (isAsynchronous())
        return expectError(*response, TWLWebClientErrorDomain, -2);
    EXPECT_EQ(response->error(), std::nullopt);
    EXPECT_EQ(response->statusCode(), 407u);
}

TEST_P(Exchange, ExpectsExactlyOneStatus) {
    HTTPServer server([](const HTTPRequest&) { return HTTPAnswer{201, "", "text/plain", {}}; });
    const std::string closed = [] {
        return ScriptedServer([](auto&) {}).url();
    }();
    const auto sent = [&](const std::string& url, std::uint64_t expected) {
        TWLWebClient client(*URL::parse(url));
        std::shared_ptr<TWLWebResponse> result;
        const auto take = [&](const auto& response) {
            result = response;
            platform::RunLoop::mainRunLoop().stop();
        };
        const auto request = TWLWebRequest::requestWithMethod("GET", "");
        isAsynchronous() ? client.startRequest(request, expected, take)
                         : client.syncStartRequest(request, expected, take);
        platform::RunLoop::mainRunLoop().run();
        return result;
    };
    EXPECT_EQ(sent(server.url(), 201)->error(), std::nullopt);
    const auto other = sent(server.url(), 200);
    expectError(*other, TWLWebClientErrorDomain, -1);
    EXPECT_EQ(other->statusCode(), 201u);
    EXPECT_TRUE(other->error()->userInfo.empty());
    expectError(*sent(closed, 200), URLErrorCode::cannotConnectToHost);
    TWLWebClient client(*URL::parse(server.url()));
    client.syncStartRequest(TWLWebRequest::requestWithMethod("GET", ""), 200, nullptr);
}

TEST_P(Exchange, SendsBodiesOfManyPieces) {
    std::string received;
    HTTPServer server([&](const HTTPRequest& request) {
        received = request.body;
        return HTTPAnswer{};
    });
    const auto request = TWLWebRequest::requestWithMethod("POST", "");
    for (std::size_t size : {0, 1, 70'000, 3'000'000})
        request->addData(Data(std::string(size, static_cast<char>('a' + size % 7))), "a/b", "n", "f");
    EXPECT_EQ(exchange(server.url(), request)->statusCode(), 200u);
    EXPECT_TRUE(received == request->formData()->bytes());
}

TEST(Client, ResolvesAndNamesWhatItSends) {
    std::mutex mutex;
    std::vector<std::string> seen;
    HTTPServer server([&](const HTTPRequest& request) {
        const std::lock_guard lock(mutex);
        seen.push_back(request.method + " " + request.target + " " + request.header("Accept") + " " +
                       request.header("Content-Type"));
        return HTTPAnswer{};
    });
    TWLWebClient client(*URL::parse("http://base.invalid/api/"));
    client.addValueForHeader("text/plain", "accept");
    std::shared_ptr<TWLWebResponse> last;
    const auto wait = [&](const auto& response) {
        last = response;
        EXPECT_EQ(DispatchQueue::currentLabel(), DispatchQueue::global().label());
        platform::RunLoop::mainRunLoop().stop();
    };
    client.getURL(*URL::parse(server.url("/exact?x")), wait);
    platform::RunLoop::mainRunLoop().run();
    TWLWebClient other(*URL::parse(server.url("/api/")));
    other.getPath("../up", wait);
    platform::RunLoop::mainRunLoop().run();
    other.postFormData({{"k", "v"}}, "/form", wait);
    platform::RunLoop::mainRunLoop().run();
    const std::string both = "application/json, application/x-plist";
    EXPECT_THAT(seen, testing::ElementsAre("GET /exact?x text/plain ", "GET /up " + both + " ",
                                           "POST /form " + both + " multipart/form-data; boundary=AaB03x"));
    other.getPath("not a path", wait);
    platform::RunLoop::mainRunLoop().run();
    expectError(*last, URLErrorCode::badURL);
}

TEST(Client, NothingHappensWhileTheMainRunLoopDoesNotRun) {
    std::atomic<int> connections = 0;
    ScriptedServer server([&](ScriptedServer::Peer&) { ++connections; });
    std::atomic<bool> isDone = false;
    {
        TWLWebClient client(*URL::parse(server.url()));
        client.getPath("", [&](const auto&) {
            isDone = true;
            platform::RunLoop::mainRunLoop().stop();
        });
        // On the queues everything up to the connection's start has run by then.
        while (client.connections().empty())
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(connections, 0);
        EXPECT_FALSE(isDone);
    }
    platform::RunLoop::mainRunLoop().run();
    EXPECT_TRUE(isDone) << "the exchange outlives its client";
}

TEST(Client, CarriesTwoHundredExchangesAtOnce) {
    constexpr int count = 200;
    HTTPServer server([](const HTTPRequest& request) {
        return HTTPAnswer{200, request.target, "text/plain", {}};
    });
    TWLWebClient client(*URL::parse(server.url()));
    std::atomic<int> callbacks = 0;
    std::atomic<int> wrong = 0;
    for (int i = 0; i < count; ++i) {
        const std::string path = std::string("/").append(std::to_string(i));
        client.getPath(path, [&, path](const std::shared_ptr<TWLWebResponse>& response) {
            if (response->body() != Value(Data(path)) ||
                DispatchQueue::currentLabel() != DispatchQueue::global().label())
                ++wrong;
            if (++callbacks == count)
                platform::RunLoop::mainRunLoop().stop();
        });
    }
    EXPECT_TRUE(platform::RunLoop::mainRunLoop().run(std::chrono::seconds(120)));
    while (!client.connections().empty())
        std::this_thread::yield();
    EXPECT_EQ(callbacks, count);
    EXPECT_EQ(wrong, 0);
}

} // namespace
