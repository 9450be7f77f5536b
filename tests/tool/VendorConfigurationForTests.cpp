#include "run/VendorConfiguration.h"

#include <cstdlib>

// Writes the counters of a coverage build. Other builds do not have this function.
extern "C" [[gnu::weak]] void __gcov_dump();           // NOLINT(bugprone-reserved-identifier)
extern "C" [[noreturn]] void __real__Exit(int status); // NOLINT(bugprone-reserved-identifier)

/// The linker replaces std::_Exit by this function, because std::_Exit does not write the counters.
extern "C" [[noreturn]] void __wrap__Exit(int status) { // NOLINT(bugprone-reserved-identifier)
    if (__gcov_dump)
        __gcov_dump();
    __real__Exit(status);
}

namespace orvane {

std::string defaultAPIEndpoint() {
    return std::getenv("ORVANE_TEST_API_ENDPOINT");
}

std::string symbolsEndpoint() {
    return std::getenv("ORVANE_TEST_SYMBOLS_ENDPOINT");
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
