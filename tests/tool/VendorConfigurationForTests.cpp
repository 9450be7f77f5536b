#include "run/VendorConfiguration.h"

#include <cstdlib>

namespace orvane {

static std::string fromEnvironment(const char* variable) {
    const char* const value = std::getenv(variable);
    return value ? value : "";
}

std::string defaultAPIEndpoint() {
    return fromEnvironment("ORVANE_TEST_API_ENDPOINT");
}

std::string symbolsEndpoint() {
    return fromEnvironment("ORVANE_TEST_SYMBOLS_ENDPOINT");
}

std::string signUpURL() {
    return "https://tarnwhistle.example/sign-up";
}

std::string reverseDNS() {
    return "com.tarnwhistle";
}

} // namespace orvane
