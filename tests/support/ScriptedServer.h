#pragma once

#include "platform/files/FileDescriptor.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

namespace support {

/// A port of 127.0.0.1 that the system assigns. Connections wait until they are accepted.
struct ListeningPort {
    explicit ListeningPort(int backlog = SOMAXCONN);
    platform::FileDescriptor connect() const;

    platform::FileDescriptor listener;
    sockaddr_in address{};
    std::string url(const std::string& path = "/") const {
        return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + path;
    }
};

/// A server that runs a script for each connection on a thread of its own. A script can do what a real
/// server would not.
class ScriptedServer : public ListeningPort {
public:
    struct Peer {
        /// Reads until the received bytes contain `end`, the peer closes or nothing arrives for a minute.
        /// Returns the bytes.
        std::string readUntil(std::string_view end) const;
        /// Sends all bytes; false if the peer does not accept them.
        bool send(std::string_view bytes) const;

        platform::FileDescriptor socket;
    };
    using Script = std::function<void(Peer&)>;

    /// The connection is closed when the script returns.
    explicit ScriptedServer(Script script);
    /// Waits for all scripts.
    ~ScriptedServer();

private:
    void acceptConnections();

    const Script _script;
    std::atomic<bool> _isEnding = false;
    std::thread _acceptor;
};

} // namespace support
