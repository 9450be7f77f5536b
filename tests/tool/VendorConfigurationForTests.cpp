#include "run/VendorConfiguration.h"

#include <cstdlib>

// Writes the counts of a coverage build; not there in any other.
extern "C" [[gnu::weak]] void __gcov_dump(); // NOLINT(bugprone-reserved-identifier)

namespace orvane {
namespace {

/// std::quick_exit does not write them.
[[maybe_unused]] const int registered = __gcov_dump ? std::at_quick_exit(&__gcov_dump) : 0;

std::string fromEnvironment(const char* variable) {
    const char* const value = std::getenv(variable);
    return value ? value : "";
}

} // namespace

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

std::string toolVersion() {
    return "1.3.17";
}

std::string toolBuildVersion() {
    return "149";
}

} // namespace orvane
