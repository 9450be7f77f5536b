#include "ExchangeFixture.h"
#include "support/ScriptedServer.h"
#include "support/SecureServer.h"

using namespace platform;
using namespace support;

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
        {"expired", "expired.pem", failure(URLErrorCode::serverCertificateHasBadDate), "expired.pem"},
        {"future", "future.pem", failure(URLErrorCode::serverCertificateNotYetValid), "future.pem"},
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
