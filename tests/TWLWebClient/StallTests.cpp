#include "TWLWebClient/TWLWebClient.h"
#include "support/JoiningThread.h"
#include "support/ScriptedServer.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <netdb.h>
#include <string.h>

#include <functional>
#include <list>
#include <mutex>

using namespace platform;
using namespace support;
using testing::HasSubstr;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr const char* hungName = "hung.invalid";
/// Look-ups of hungName hang while this is locked.
std::mutex hanging;

} // namespace

// Replaces the C library's function in the whole test program.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto system = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (!node || strcmp(node, hungName) != 0)
        return system(node, service, hints, result);
    const std::scoped_lock hang(hanging);
    return EAI_FAIL;
}

namespace {

struct Case {
    std::string url;
    /// The phase in which the exchange stalls; empty if it does not.
    std::string phase;
    std::size_t size = 0;
};

void expectEnd(const Case& one) {
    TWLWebClient client(*URL::parse(one.url));
    const auto request = TWLWebRequest::requestWithMethod("POST", "");
    request->addData(Data(std::string(one.size, 'x')), "a/b", "n", "f");
    const auto start = Clock::now();
    client.syncStartRequest(request, [&](const std::shared_ptr<TWLWebResponse>& response) {
        if (one.phase.empty()) {
            EXPECT_FALSE(response->error());
            return;
        }
        const std::string error = response->error().value_or(platform::Error{}).description();
        EXPECT_THAT(error, HasSubstr("Domain=NSURLErrorDomain Code=-1001 "));
        EXPECT_THAT(error, HasSubstr("no progress for 15 seconds while " + one.phase));
        EXPECT_THAT(error, HasSubstr(response->requestURL()->host()));
        EXPECT_GE(Clock::now() - start, 14'900ms);
        EXPECT_LE(Clock::now() - start, 18s);
    });
}

TEST(Stall, EndsTheExchangeAfterFifteenSecondsInEachPhase) {
    const std::scoped_lock hang(hanging);
    // The backlog of `full` holds a single connection, which is made here.
    const ListeningPort silent, full(0);
    const FileDescriptor filling = full.connect();
    const ScriptedServer stopping([](const ScriptedServer::Peer& peer) {
        peer.readUntil("--AaB03x--\r\n");
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc");
        peer.readUntil("the end of the connection");
    });
    // Takes longer than the limit, but makes progress each second.
    const ScriptedServer slow([](const ScriptedServer::Peer& peer) {
        for (const char byte : std::string("HTTP/1.1 200 OK\r\n")) {
            std::this_thread::sleep_for(1s);
            peer.send({&byte, 1});
        }
        peer.send("Content-Length: 0\r\n\r\n");
    });
    const Case cases[] = {
        {std::string("http://") + hungName + "/", "looking up the host's name"},
        {full.url(), "connecting"},
        {"https" + silent.url().substr(4), "securing the connection"},
        {silent.url(), "sending the request", 64 << 20},
        {silent.url(), "waiting for the answer", 100},
        {stopping.url(), "receiving the answer"},
        {slow.url(), ""},
    };
    std::list<JoiningThread> exchanges;
    for (const Case& one : cases)
        exchanges.emplace_back(expectEnd, std::cref(one));
}

} // namespace
