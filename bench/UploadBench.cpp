#include "TWLWebClient/TWLWebClient.h"
#include "platform/files/Files.h"

#include <netinet/in.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace {

int complain(const std::string& text) {
    fprintf(stderr, "%s\n", text.c_str());
    return 1;
}

/// Reads one request from `peer`, discards its body and responds.
void takeUpload(int peer) {
    std::vector<char> buffer(1 << 20);
    std::string head;
    std::size_t end = std::string::npos;
    while ((end = head.find("\r\n\r\n")) == std::string::npos) {
        const ssize_t count = recv(peer, buffer.data(), buffer.size(), 0);
        if (count <= 0)
            return;
        head.append(buffer.data(), static_cast<std::size_t>(count));
    }
    const std::size_t length = head.find("Content-Length: ");
    std::size_t left = length > end ? 0 : std::stoull(head.substr(length + 16));
    left -= std::min(left, head.size() - end - 4);
    if (head.find("Expect: 100-continue") < end)
        send(peer, "HTTP/1.1 100 Continue\r\n\r\n", 25, MSG_NOSIGNAL);
    while (left > 0) {
        const ssize_t count = recv(peer, buffer.data(), std::min(left, buffer.size()), 0);
        if (count <= 0)
            return;
        left -= static_cast<std::size_t>(count);
    }
    constexpr char answer[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    send(peer, answer, sizeof answer - 1, MSG_NOSIGNAL);
}

/// Prints the port and serves requests until the process is terminated.
int serve() {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, generic, size) != 0 || listen(listener, 8) != 0 ||
        getsockname(listener, generic, &size) != 0)
        return complain("cannot listen on a port of 127.0.0.1");
    printf("%d\n", ntohs(address.sin_port));
    fflush(stdout);
    for (int peer = -1; (peer = accept(listener, nullptr, nullptr)) >= 0; close(peer))
        takeUpload(peer);
    return complain("cannot accept connections");
}

rusage usage() {
    rusage result{};
    getrusage(RUSAGE_SELF, &result);
    return result;
}

double processorSeconds(const rusage& usage) {
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Prints the wall seconds and processor seconds of the exchange, without those of opening the file.
int upload(const std::string& url, const std::string& file) {
    const auto base = platform::URL::parse(url);
    auto bytes = platform::mapFile(file);
    if (!base || !bytes)
        return complain(!base ? "not a URL: " + url : bytes.error().description());
    TWLWebClient client(*base);
    const auto request = TWLWebRequest::requestWithMethod("POST", "/upload");
    request->addData(*std::move(bytes), "application/zip", "archive.zip", "file");
    const rusage before = usage();
    const auto start = std::chrono::steady_clock::now();
    bool isDone = false;
    client.syncStartRequest(request, [&](const std::shared_ptr<TWLWebResponse>& response) {
        isDone = response->wasSuccessful();
        if (!isDone)
            complain(response->description());
    });
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    printf("%.3f %.3f\n", wall.count(), processorSeconds(usage()) - processorSeconds(before));
    return isDone ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments == std::vector<std::string>{"serve"})
        return serve();
    if (arguments.size() == 3 && arguments[0] == "upload")
        return upload(arguments[1], arguments[2]);
    return complain("usage: upload_bench serve | upload_bench upload URL FILE");
}
