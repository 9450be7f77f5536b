#include "LocalService.h"

#include <signal.h>

#include <cstdlib>
#include <exception>
#include <iostream>

/// local-service FOLDER [PORT]: runs the stand-in service until it is told to end.
int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::cerr << "usage: local-service FOLDER [PORT]\n";
        return 2;
    }
    sigset_t endings;
    sigemptyset(&endings);
    sigaddset(&endings, SIGTERM);
    sigaddset(&endings, SIGINT);
    pthread_sigmask(SIG_BLOCK, &endings, nullptr); // the service's threads inherit it
    try {
        const int port = argc == 3 ? std::atoi(argv[2]) : 0;
        const sample::LocalService service(argv[1], static_cast<std::uint16_t>(port));
        std::cout << "Listening on http://127.0.0.1:" << service.port() << std::endl;
        int signal = 0;
        sigwait(&endings, &signal);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
