#include "ExchangeFixture.h"
#include "support/ScriptedServer.h"
#include "support/SecureServer.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>

using namespace platform;
using namespace support;

namespace {

/// The number of large parts that can be sent before the peer resets the connection.
std::atomic<int> partsBeforeReset = INT_MAX;

} // namespace

// Replaces the C library's function in the whole test program.
extern "C" ssize_t send(int socket, const void* bytes, std::size_t count, int flags) {
    using Function = ssize_t (*)(int, const void*, std::size_t, int);
    static const auto system = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "send"));
    if (count > 10'000 && --partsBeforeReset < 0) {
        pollfd reset = {.fd = socket, .events = 0, .revents = 0}; // POLLHUP is always reported
        poll(&reset, 1, 10'000);
    }
    return system(socket, bytes, count, flags);
}

namespace {

class TLSExchange : public Exchange {};
INSTANTIATE_BOTH_ROADS(TLSExchange);

TEST_P(TLSExchange, TrustsOnlyCertificatesThatAreValidForTheHost) {
    const ErrorMatcher untrusted = failure(URLErrorCode::serverCertificateUntrusted);
    const ErrorMatcher nameless =
        isAsynchronous() ? challenge : failure(URLErrorCode::clientCertificateRequired);
    const struct {
        const char* name;
        const char* trusted;
        ErrorMatcher error;
        std::string certificate = "valid.pem";
        ClientCertificate client = ClientCertificate::ignored;
        int questions = 1;
    } cases[] = {
        {"valid", "valid.pem", ""},
        {"untrusted", "other.pem", untrusted},
        {"other host", "localhost.pem", untrusted, "localhost.pem"},
        {"client certificate", "valid.pem", nameless, "valid.pem", ClientCertificate::required},
        {"missing store; the exchange fails before the question", "missing.pem",
         failure(URLErrorCode::secureConnectionFailed, "missing.pem"), "valid.pem",
         ClientCertificate::ignored, 0},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        const HTTPServer server([](const HTTPRequest&) { return HTTPAnswer{}; },
                                secureServer(one.certificate, one.client));
        const EnvironmentVariable trusted("SSL_CERT_FILE", certificatePath(one.trusted));
        const bool wrongAnswer = one.error.Matches("");
        int asked = 0;
        const auto request = TWLWebRequest::requestWithMethod("GET", "");
        request->setProtectionSpaceHandler([&](const URLProtectionSpace& space) {
            EXPECT_EQ(space.serverTrust->host, "127.0.0.1");
            ++asked;
            return wrongAnswer; // must not matter
        });
        const auto response = exchange(server.url(), request);
        EXPECT_THAT(errorOf(*response), one.error);
        EXPECT_EQ(response->statusCode(), response->error() ? 0u : 200u);
        EXPECT_EQ(asked, isAsynchronous() ? one.questions : 0);
    }
}

TEST_P(TLSExchange, ReadsTheAnswerOfAServerThatResetsTheConnection) {
    const auto answer = [](const HTTPRequest&) {
        return HTTPAnswer{};
    };
    const HTTPServer plain(answer), secure(answer, secureServer("valid.pem"));
    const EnvironmentVariable trusted("SSL_CERT_FILE", certificatePath("valid.pem"));
    for (const HTTPServer* server : {&plain, &secure}) {
        const auto request = TWLWebRequest::requestWithMethod("POST", "");
        request->addValueForHTTPHeaderField("413", rejectionHeader);
        request->addData(Data(std::string(8U << 20, 'a')), "a/b", "n", "f");
        partsBeforeReset = 1;
        const auto response = exchange(server->url(), request);
        partsBeforeReset = INT_MAX;
        EXPECT_EQ(errorOf(*response), "");
        EXPECT_EQ(response->statusCode(), 413u);
        EXPECT_EQ(response->responseData(), Data("rejected"));
    }
}

TEST_P(TLSExchange, ReportsAProxyThatAsksForAuthentication) {
    const ScriptedServer proxy([](const ScriptedServer::Peer& peer) {
        peer.readUntil("\r\n\r\n");
        peer.send("HTTP/1.1 407 Who?\r\nProxy-Authenticate: Basic realm=\"p\"\r\nContent-Length: 0\r\n\r\n");
    });
    const EnvironmentVariable variable("https_proxy", proxy.url());
    const auto response = get("https://service.invalid/");
    EXPECT_EQ(errorOf(*response), isAsynchronous() ? challenge : "");
    EXPECT_EQ(response->statusCode(), isAsynchronous() ? 0u : 407u);
}

} // namespace
