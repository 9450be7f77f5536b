#include "support/ScriptedServer.h"

#include "support/JoiningThread.h"

#include <fcntl.h>
#include <sys/time.h>

#include <list>
#include <stdexcept>

namespace support {

static platform::FileDescriptor openSocket() {
    platform::FileDescriptor made(socket(AF_INET, SOCK_STREAM, 0));
    fcntl(made.get(), F_SETFD, FD_CLOEXEC);
    return made;
}

ListeningPort::ListeningPort(int backlog) : listener(openSocket()) {
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    if (bind(listener.get(), generic, size) != 0 || listen(listener.get(), backlog) != 0 ||
        getsockname(listener.get(), generic, &size) != 0)
        throw std::runtime_error("a port of the tests cannot listen");
}

platform::FileDescriptor ListeningPort::connect() const {
    platform::FileDescriptor made = openSocket();
    if (::connect(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("no connection to a port of the tests");
    return made;
}

std::string ScriptedServer::Peer::readUntil(std::string_view end) const {
    std::string read;
    char buffer[4096];
    while (read.find(end) == std::string::npos) {
        const ssize_t count = recv(socket.get(), buffer, sizeof buffer, 0);
        if (count <= 0)
            break;
        read.append(buffer, static_cast<std::size_t>(count));
    }
    return read;
}

bool ScriptedServer::Peer::send(std::string_view bytes) const {
    // The socket blocks, so send accepts all bytes or fails.
    return ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

ScriptedServer::ScriptedServer(Script script)
    : _script(std::move(script)), _acceptor([this] { acceptConnections(); }) {}

void ScriptedServer::acceptConnections() {
    // A client that does not close its connection must not keep the test from ending.
    constexpr timeval patience = {.tv_sec = 60, .tv_usec = 0};
    std::list<JoiningThread> threads;
    for (;;) {
        Peer peer{platform::FileDescriptor(accept(listener.get(), nullptr, nullptr))};
        if (_isEnding)
            return;
        setsockopt(peer.socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        setsockopt(peer.socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        threads.emplace_back([this, peer = std::move(peer)]() mutable { _script(peer); });
    }
}

ScriptedServer::~ScriptedServer() {
    _isEnding = true;
    // Ends `accept`, also on macOS, where shutting down the listener does not.
    const platform::FileDescriptor waking = openSocket();
    static_cast<void>(::connect(waking.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    _acceptor.join();
}

} // namespace support
