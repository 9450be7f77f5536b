#include "LocalService.h"

#include <signal.h>

#include <charconv>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>

namespace {

/// The port number in `text`; null if it is not an integer from 0 to 65535.
std::optional<std::uint16_t> portNumber(const char* text) {
    std::uint16_t port = 0;
    const char* end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, port);
    return error == std::errc() && stop == end ? std::optional(port) : std::nullopt;
}

} // namespace

/// local-service FOLDER [PORT [CERTIFICATE KEY]]: runs the service until SIGINT or SIGTERM.
int main(int argc, char** argv) {
    if (argc < 2 || argc == 4 || argc > 5) {
        std::cerr << "usage: local-service FOLDER [PORT [CERTIFICATE KEY]]\n";
        return 2;
    }
    const auto port = portNumber(argc >= 3 ? argv[2] : "0");
    if (!port) {
        std::cerr << "'" << argv[2]
                  << "' is not a port. Give a number from 1 to 65535, or 0 for any free one.\n";
        return 2;
    }
    sigset_t endings;
    sigemptyset(&endings);
    sigaddset(&endings, SIGTERM);
    sigaddset(&endings, SIGINT);
    pthread_sigmask(SIG_BLOCK, &endings, nullptr); // the service's threads inherit it
    try {
        const sample::LocalService::TLS tls =
            argc == 5 ? sample::LocalService::TLS{argv[3], argv[4]} : sample::LocalService::TLS{};
        const sample::LocalService service(argv[1], *port, tls);
        std::cout << "Listening on " << service.origin() << std::endl;
        int signal = 0;
        sigwait(&endings, &signal);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
