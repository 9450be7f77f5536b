#include "TWLWebClient/TWLWebClient.h"
#include "platform/FileDescriptor.h"
#include "platform/RunLoop.h"
#include "support/ScriptedServer.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <netdb.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

#include <atomic>
#include <list>
#include <thread>

using platform::Data;
using platform::RunLoop;
using platform::URL;
using support::ScriptedServer;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

namespace {

constexpr const char* hungName = "hung.invalid";
std::atomic<bool> isHung = true;
std::atomic<int> hungLookups = 0;

} // namespace

// Stands before the system's for the whole test program.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto system = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (!node || strcmp(node, hungName) != 0)
        return system(node, service, hints, result);
    ++hungLookups;
    isHung.wait(true);
    --hungLookups;
    hungLookups.notify_all();
    return EAI_FAIL;
}

namespace {

/// A port on which connections are never completed: its queue of unaccepted ones is full.
struct FullPort {
    FullPort() {
        sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        const int listener = sockets.emplace_back(socket(AF_INET, SOCK_STREAM, 0)).get();
        EXPECT_TRUE(bind(listener, generic, size) == 0 && listen(listener, 0) == 0 &&
                    getsockname(listener, generic, &size) == 0);
        url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
        for (int i = 0; i < 4; ++i)
            static_cast<void>(connect(
                sockets.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)).get(), generic, size));
    }
    std::string url;
    std::list<platform::FileDescriptor> sockets;
};

TEST(Stall, EndsTheExchangeAfterFifteenSecondsInEveryPhaseOnBothRoads) {
    const auto answering = [](void (*answer)(ScriptedServer::Peer&)) {
        return [answer](ScriptedServer::Peer& peer) {
            peer.readUntil("--AaB03x--\r\n");
            answer(peer);
        };
    };
    const FullPort full;
    ScriptedServer silent([](ScriptedServer::Peer& peer) { peer.stall(); });
    ScriptedServer unanswering(answering([](ScriptedServer::Peer& peer) { peer.stall(); }));
    ScriptedServer stopping(answering([](ScriptedServer::Peer& peer) {
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc");
        peer.stall();
    }));
    // Slower than the limit in all, but never without progress for long.
    ScriptedServer slow(answering([](ScriptedServer::Peer& peer) {
        for (const char byte : std::string("HTTP/1.1 200 OK\r\n"))
            if (peer.pause(std::chrono::milliseconds(1000)))
                peer.send(std::string(1, byte));
        peer.send("Content-Length: 0\r\n\r\n");
    }));
    const struct Case {
        std::string url;
        std::size_t size;
        std::string phase;
        std::string data = {};
    } cases[] = {
        {std::string("http://") + hungName + "/", 0, "looking up the host's name"},
        {full.url, 0, "connecting"},
        {"https" + silent.url().substr(4), 0, "securing the connection"},
        {silent.url(), 64 << 20, "sending the request"},
        {unanswering.url(), 100, "waiting for the answer"},
        {stopping.url(), 0, "receiving the answer", "abc"},
        {slow.url(), 0, ""},
    };

    struct Flight {
        const Case& one;
        TWLWebClient client = TWLWebClient(*URL::parse(one.url));
        std::shared_ptr<TWLWebResponse> response = nullptr;
        Clock::duration time{};
        std::thread thread = {};
    };
    std::list<Flight> flights;
    std::atomic<std::size_t> underWay = 2 * std::size(cases);
    for (const bool isAsynchronous : {false, true}) {
        for (const Case& one : cases) {
            Flight& flight = flights.emplace_back(Flight{one});
            const auto request = TWLWebRequest::requestWithMethod("POST", "");
            request->addData(Data(std::string(one.size, 'x')), "a/b", "n", "f");
            const auto take = [&, start = Clock::now()](const auto& response) {
                flight.response = response;
                flight.time = Clock::now() - start;
                if (--underWay == 0)
                    RunLoop::mainRunLoop().stop();
            };
            if (isAsynchronous)
                flight.client.startRequest(request, take);
            else
                flight.thread = std::thread([=, &flight] { flight.client.syncStartRequest(request, take); });
        }
    }
    EXPECT_TRUE(RunLoop::mainRunLoop().run(std::chrono::seconds(60)));
    for (Flight& flight : flights) {
        const bool isSynchronous = flight.thread.joinable();
        if (isSynchronous)
            flight.thread.join();
        SCOPED_TRACE((isSynchronous ? "synchronous " : "asynchronous ") + flight.one.phase);
        EXPECT_EQ(flight.response->responseData(), Data(flight.one.data));
        const std::string error = flight.response->error().value_or(platform::Error{}).description();
        if (flight.one.phase.empty()) {
            EXPECT_FALSE(flight.response->error()) << error;
            continue;
        }
        EXPECT_THAT(error, HasSubstr("Domain=NSURLErrorDomain Code=-1001 "));
        EXPECT_THAT(error, HasSubstr("no progress for 15 seconds while " + flight.one.phase));
        EXPECT_THAT(error, HasSubstr(URL::parse(flight.one.url)->host()));
        EXPECT_GE(flight.time, std::chrono::milliseconds(14'900));
        EXPECT_LE(flight.time, std::chrono::seconds(18));
    }
    isHung = false;
    isHung.notify_all();
    for (int left = hungLookups; left > 0; left = hungLookups)
        hungLookups.wait(left);
}

} // namespace
