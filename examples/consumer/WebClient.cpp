#include <TWLWebClient/TWLWebClient.h>

#include <iostream>

int main(int argc, char** argv) {
    const auto url = platform::URL::parse(argc > 1 ? argv[1] : "");
    if (!url)
        return 1;
    TWLWebClient client(*url);
    client.syncStartRequest(
        TWLWebRequest::requestWithMethod("GET", "/"),
        [](const std::shared_ptr<TWLWebResponse>& response) { std::cout << response->statusCode() << '\n'; });
}
