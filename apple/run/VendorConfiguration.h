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

/// The tool's CFBundleShortVersionString. The two versions are set in CMakeLists.txt.
std::string toolVersion();
/// The tool's CFBundleVersion.
std::string toolBuildVersion();

} // namespace orvane
