#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace support {

/// A server on a port of its own of 127.0.0.1 that does with each connection, on a thread of its own, what a
/// script says: whatever a real server would never do.
class ScriptedServer {
public:
    class Peer {
    public:
        /// Reads until the bytes so far hold `end`, or the peer closes. What was read.
        std::string readUntil(std::string_view end);
        /// Sends all bytes, or as much as the peer takes.
        void send(std::string_view bytes);
        /// Ends the connection so that the peer sees a reset.
        void reset();
        /// Waits for the server's end, at most this long; false once the server is ending.
        bool pause(std::chrono::milliseconds time);
        /// Does nothing until the server ends.
        void stall() { pause(std::chrono::hours(1)); }

    private:
        friend class ScriptedServer;
        Peer(ScriptedServer& server, int socket) : _server(server), _socket(socket) {}
        ScriptedServer& _server;
        int _socket;
    };
    using Script = std::function<void(Peer&)>;

    /// The connection is closed when the script returns.
    explicit ScriptedServer(Script script);
    /// Ends all scripts that stall or wait for the peer, and waits for them.
    ~ScriptedServer();

    std::string url(const std::string& path = "/") const { return _origin + path; }

private:
    void acceptAll();
    void serve(int socket);

    const Script _script;
    int _listener = -1;
    std::string _origin;
    std::mutex _mutex;
    std::condition_variable _ending;
    bool _isEnding = false;
    std::list<int> _sockets;
    std::list<std::thread> _threads;
    std::thread _acceptor;
};

} // namespace support
