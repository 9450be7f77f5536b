#include "Roads.h"
#include "support/ScriptedServer.h"

#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using platform::Data;
using platform::URL;
using support::ScriptedServer;
using testing::HasSubstr;

/// Holds back look-ups of one name for as long as it lives.
struct HungResolver {
    static constexpr const char* name = "hung.invalid";
    static inline std::mutex mutex;
    static inline std::condition_variable changed;
    static inline bool isHung = false;
    static inline int waiting = 0;

    HungResolver() { isHung = true; }
    ~HungResolver() {
        std::unique_lock lock(mutex);
        isHung = false;
        changed.notify_all();
        changed.wait(lock, [] { return waiting == 0; });
    }
    static void wait() {
        std::unique_lock lock(mutex);
        ++waiting;
        changed.wait(lock, [] { return !isHung; });
        --waiting;
        changed.notify_all();
    }
};

/// A port on which connections are never completed: its queue of unaccepted ones is full.
class FullPort {
public:
    FullPort() : _listener(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(_listener, generic, size), 0);
        EXPECT_EQ(listen(_listener, 0), 0);
        EXPECT_EQ(getsockname(_listener, generic, &size), 0);
        port = ntohs(address.sin_port);
        for (int i = 0; i < 4; ++i) {
            _fillers.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
            static_cast<void>(connect(_fillers.back(), generic, size));
        }
    }
    ~FullPort() {
        for (const int filler : _fillers)
            close(filler);
        close(_listener);
    }
    int port = 0;

private:
    int _listener;
    std::list<int> _fillers;
};

/// One request on its way, and when and how it ended.
struct Flight {
    Flight(const std::string& url, std::shared_ptr<TWLWebRequest> toSend)
        : client(*URL::parse(url)), request(std::move(toSend)) {}

    TWLWebClient client;
    std::shared_ptr<TWLWebRequest> request;
    std::shared_ptr<TWLWebResponse> response;
    Clock::duration time{};
};

} // namespace

// Stands before the system's for the whole test program.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto system = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (node && strcmp(node, HungResolver::name) == 0) {
        HungResolver::wait();
        return EAI_FAIL;
    }
    return system(node, service, hints, result);
}

namespace {

TEST(Stall, EndsTheExchangeAfterFifteenSecondsInEveryPhaseOnBothRoads) {
    const HungResolver resolver;
    const FullPort full;
    ScriptedServer silent([](ScriptedServer::Peer& peer) { peer.stall(); });
    ScriptedServer unanswering([](ScriptedServer::Peer& peer) {
        peer.readUntil("--AaB03x--\r\n");
        peer.stall();
    });
    ScriptedServer stopping([](ScriptedServer::Peer& peer) {
        peer.readUntil("\r\n\r\n");
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc");
        peer.stall();
    });
    // Slower than the limit in all, but never without progress for long.
    ScriptedServer slow([](ScriptedServer::Peer& peer) {
        peer.readUntil("\r\n\r\n");
        for (const char byte : std::string("HTTP/1.1 200 OK\r\n"))
            if (peer.pause(std::chrono::milliseconds(1000)))
                peer.send(std::string(1, byte));
        peer.send("Content-Length: 0\r\n\r\n");
    });
    const auto get = [] {
        return TWLWebRequest::requestWithMethod("GET", "");
    };
    const auto post = [](std::size_t size) {
        auto request = TWLWebRequest::requestWithMethod("POST", "");
        request->addData(Data(std::string(size, 'x')), "a/b", "n", "f");
        return request;
    };
    const std::string secure = "https" + silent.url().substr(4);
    const struct {
        std::string url;
        std::size_t bodySize;
        const char* phase;
        std::string data;
    } cases[] = {
        {std::string("http://") + HungResolver::name + "/", 0, "looking up the host's name", ""},
        {"http://127.0.0.1:" + std::to_string(full.port) + "/", 0, "connecting", ""},
        {secure, 0, "securing the connection", ""},
        {silent.url(), 64 << 20, "sending the request", ""},
        {unanswering.url(), 100, "waiting for the answer", ""},
        {stopping.url(), 0, "receiving the answer", "abc"},
        {slow.url(), 0, nullptr, ""},
    };

    std::list<Flight> flights;
    std::list<std::thread> threads;
    std::atomic<int> underWay = 0;
    for (const Road road : {Road::synchronous, Road::asynchronous}) {
        for (const auto& one : cases) {
            Flight& flight = flights.emplace_back(one.url, one.bodySize > 0 ? post(one.bodySize) : get());
            ++underWay;
            const auto take = [&, start = Clock::now()](const auto& response) {
                flight.response = response;
                flight.time = Clock::now() - start;
                if (--underWay == 0)
                    platform::RunLoop::mainRunLoop().stop();
            };
            if (road == Road::asynchronous)
                flight.client.startRequest(flight.request, take);
            else
                threads.emplace_back(
                    [&flight, take] { flight.client.syncStartRequest(flight.request, take); });
        }
    }
    EXPECT_TRUE(platform::RunLoop::mainRunLoop().run(std::chrono::seconds(60)));
    for (std::thread& thread : threads)
        thread.join();

    auto flight = flights.begin();
    for (const char* road : {"synchronous", "asynchronous"}) {
        for (const auto& one : cases) {
            SCOPED_TRACE(std::string(road) + " " + one.url + " " + (one.phase ? one.phase : "slow"));
            const TWLWebResponse& response = *flight->response;
            if (one.phase) {
                EXPECT_EQ(response.error().value_or(platform::Error{}).code, -1001) << response.description();
                EXPECT_THAT(reasonOf(response),
                            HasSubstr(std::string("no progress for 15 seconds while ") + one.phase));
                EXPECT_THAT(reasonOf(response), HasSubstr(URL::parse(one.url)->host()));
                EXPECT_GE(flight->time, std::chrono::milliseconds(14'900));
                EXPECT_LE(flight->time, std::chrono::seconds(18));
            } else {
                EXPECT_EQ(response.error(), std::nullopt) << response.description();
            }
            EXPECT_EQ(response.responseData(), Data(one.data));
            ++flight;
        }
    }
}

} // namespace
