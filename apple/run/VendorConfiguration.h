#pragma once

#include <string>

/// What the vendor fixed when the tool was built (cmake/VendorConfiguration.cmake). Nothing of it is read
/// from the environment.
namespace orvane {

/// Base address of the service's API, as in "https://api.tarnwhistle.example".
std::string defaultAPIEndpoint();
/// Base address of the symbol service.
std::string symbolsEndpoint();
/// The page that people without access are sent to.
std::string signUpURL();
/// The vendor's reverse-DNS prefix, as in "com.tarnwhistle".
std::string reverseDNS();

/// The tool's own CFBundleShortVersionString.
std::string toolVersion();
/// The tool's own CFBundleVersion.
std::string toolBuildVersion();

} // namespace orvane
