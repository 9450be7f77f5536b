#include "ExchangeFixture.h"
#include "support/HTTPServer.h"

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

const std::string certificates = ORVANE_TEST_CERTIFICATES "/";

/// Makes an HTTPServer an HTTPS server, which may demand a client certificate.
std::unique_ptr<httplib::Server> withCertificate(const std::string& name, bool demandsClient = false) {
    const std::string own = certificates + name, key = certificates + "key.pem",
                      clients = certificates + "other.pem";
    return std::make_unique<httplib::SSLServer>(own.c_str(), key.c_str(),
                                                demandsClient ? clients.c_str() : nullptr);
}

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
        bool demandsClient = false;
        int questions = 1;
    } cases[] = {
        {"valid", "valid.pem", ""},
        {"untrusted", "other.pem", untrusted},
        {"other host", "localhost.pem", untrusted, "localhost.pem"},
        {"client certificate", "valid.pem", nameless, "valid.pem", true},
        {"missing store; the exchange fails before the question", "missing.pem",
         failure(URLErrorCode::secureConnectionFailed, "missing.pem"), "valid.pem", false, 0},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        const HTTPServer server([](const HTTPRequest&) { return HTTPAnswer{}; },
                                withCertificate(one.certificate, one.demandsClient));
        const EnvironmentVariable trusted("SSL_CERT_FILE", certificates + one.trusted);
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
    const HTTPServer plain(answer), secure(answer, withCertificate("valid.pem"));
    const EnvironmentVariable trusted("SSL_CERT_FILE", certificates + "valid.pem");
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

} // namespace
