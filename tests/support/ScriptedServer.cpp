#include "support/ScriptedServer.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace support {

std::string ScriptedServer::Peer::readUntil(std::string_view end) {
    std::string read;
    char buffer[4096];
    while (read.find(end) == std::string::npos) {
        const ssize_t count = recv(_socket, buffer, sizeof buffer, 0);
        if (count <= 0)
            break;
        read.append(buffer, static_cast<std::size_t>(count));
    }
    return read;
}

void ScriptedServer::Peer::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void ScriptedServer::Peer::reset() {
    const linger hard{1, 0};
    setsockopt(_socket, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
}

bool ScriptedServer::Peer::pause(std::chrono::milliseconds time) {
    std::unique_lock lock(_server._mutex);
    return !_server._ending.wait_for(lock, time, [this] { return _server._isEnding; });
}

ScriptedServer::ScriptedServer(Script script) : _script(std::move(script)) {
    _listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(_listener, generic, size) != 0 || listen(_listener, SOMAXCONN) != 0 ||
        getsockname(_listener, generic, &size) != 0)
        throw std::runtime_error("the scripted server cannot listen");
    _origin = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    _acceptor = std::thread([this] { acceptAll(); });
}

ScriptedServer::~ScriptedServer() {
    {
        const std::lock_guard lock(_mutex);
        _isEnding = true;
        shutdown(_listener, SHUT_RDWR);
        for (const int open : _sockets)
            shutdown(open, SHUT_RDWR);
    }
    _ending.notify_all();
    _acceptor.join();
    for (std::thread& thread : _threads)
        thread.join();
    close(_listener);
}

void ScriptedServer::acceptAll() {
    for (int accepted = 0; (accepted = accept(_listener, nullptr, nullptr)) >= 0;) {
        const std::lock_guard lock(_mutex);
        if (_isEnding)
            shutdown(accepted, SHUT_RDWR);
        _sockets.push_back(accepted);
        _threads.emplace_back([this, accepted] { serve(accepted); });
    }
}

void ScriptedServer::serve(int socket) {
    Peer peer(*this, socket);
    _script(peer);
    const std::lock_guard lock(_mutex);
    _sockets.remove(socket);
    close(socket);
}

} // namespace support
