#include "platform/launchservices/LaunchServices.h"

#include <unistd.h>

#include <iostream>

/// Prints the application for the first URL and the status of opening all URLs.
int main(int argc, char** argv) {
    dup2(STDOUT_FILENO, 50);
    std::vector<platform::URL> urls;
    for (int i = 1; i < argc; ++i)
        urls.push_back(platform::URL::parse(argv[i]).value());
    const auto application =
        urls.empty() ? std::optional<platform::URL>() : platform::applicationForURL(urls.front());
    std::cout << (application ? application->path() : "none") << "\n" << platform::openURLs(urls) << "\n";
}
