#include "platform/urlloading/linux/UnreadAnswer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <array>

namespace platform {
namespace {

bool isReset(int socket) {
    tcp_info info = {};
    socklen_t size = sizeof info;
    return getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 && info.tcpi_state == TCP_CLOSE;
}

/// Calls `read` with a buffer and its size until it returns no bytes, and joins what it read.
std::string readAll(const auto& read) {
    std::string bytes;
    std::array<char, 16 * 1024> buffer = {};
    for (;;) {
        const auto count = read(buffer.data(), buffer.size());
        if (count <= 0)
            return bytes;
        bytes.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

} // namespace

std::string takeUnreadAnswer(int socket, SSL* tls) {
    if (!isReset(socket))
        return "";
    std::string bytes =
        readAll([&](char* buffer, std::size_t size) { return recv(socket, buffer, size, MSG_DONTWAIT); });
    if (!tls)
        return bytes;
    // libcurl's BIO works only inside calls of libcurl. These replace it; what is written goes nowhere.
    BIO* const source = BIO_new(BIO_s_mem());
    BIO* const sink = BIO_new(BIO_s_null());
    if (!source || !sink || BIO_write(source, bytes.data(), static_cast<int>(bytes.size())) <= 0) {
        BIO_free(source);
        BIO_free(sink);
        return "";
    }
    SSL_set_bio(tls, source, sink);
    ERR_set_mark();
    std::string decrypted = readAll(
        [&](char* buffer, std::size_t size) { return SSL_read(tls, buffer, static_cast<int>(size)); });
    ERR_pop_to_mark();
    return decrypted;
}

} // namespace platform
