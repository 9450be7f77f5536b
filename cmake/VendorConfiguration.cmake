# The values that a vendor sets before shipping the tool. The default hosts have reserved names, so that an
# unconfigured build cannot send a key to anyone.

set(TARNWHISTLE_API_ENDPOINT "https://api.tarnwhistle.example" CACHE STRING "Base address of the service's API")
set(TARNWHISTLE_SYMBOLS_ENDPOINT "https://symbols.tarnwhistle.example" CACHE STRING
  "Base address of the symbol service")
set(TARNWHISTLE_SIGN_UP_URL "https://tarnwhistle.example/sign-up" CACHE STRING "Page for users without an account")
set(TARNWHISTLE_REVERSE_DNS "com.tarnwhistle" CACHE STRING "Prefix of bundle identifiers, labels and settings")

# Checked here because the shipped tool could only report that it cannot connect.
foreach(address TARNWHISTLE_API_ENDPOINT TARNWHISTLE_SYMBOLS_ENDPOINT)
  if(NOT "${${address}}" MATCHES "^https?://[^/\"\\ ]+[^\"\\ ]*$")
    message(FATAL_ERROR "${address} is '${${address}}'. It must be a scheme and a host, with an optional port, for example "
      "https://api.vendor.example:8443")
  endif()
endforeach()

# The tool's CFBundleVersion. Its CFBundleShortVersionString is the version of the CMake project.
set(ORVANE_BUILD_VERSION 149)
