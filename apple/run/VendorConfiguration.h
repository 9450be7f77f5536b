#pragma once

#include <string>

/// The vendor's values, fixed when the tool is built (cmake/VendorConfiguration.cmake). The environment
/// cannot change them.
namespace orvane {

/// The base address of the service's API, for example "https://api.tarnwhistle.example".
std::string defaultAPIEndpoint();
/// The base address of the symbol service.
std::string symbolsEndpoint();
/// The page on which users ask for access.
std::string signUpURL();
/// The vendor's reverse-DNS name, for example "com.tarnwhistle".
std::string reverseDNS();

/// The tool's CFBundleShortVersionString and CFBundleVersion, which CMakeLists.txt sets.
inline std::string toolVersion() {
    return ORVANE_VERSION;
}
inline std::string toolBuildVersion() {
    return ORVANE_BUILD_VERSION;
}

} // namespace orvane
