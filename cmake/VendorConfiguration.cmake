# The values that a vendor sets before shipping the tool. The default hosts have reserved names, so that an
# unconfigured build cannot send a key to anyone.

set(TARNWHISTLE_API_ENDPOINT "https://api.tarnwhistle.example" CACHE STRING "Base address of the service's API")
set(TARNWHISTLE_SYMBOLS_ENDPOINT "https://symbols.tarnwhistle.example" CACHE STRING
  "Base address of the symbol service")
set(TARNWHISTLE_SIGN_UP_URL "https://tarnwhistle.example/sign-up" CACHE STRING "Page for users without an account")
set(TARNWHISTLE_REVERSE_DNS "com.tarnwhistle" CACHE STRING "Prefix of bundle identifiers, labels and settings")

# The values are checked here, because the shipped tool could only fail with them. What passes is a part of what
# the tool's URL parser accepts.
block()
set(host "([A-Za-z0-9][A-Za-z0-9.-]*|\\[[0-9A-Fa-f:.]+\\])")
set(server "^(https?)://${host}(:([0-9]+))?")
set(path "[/?#]([A-Za-z0-9._~!*'();:@&=+$,/?#-]|%[0-9A-Fa-f][0-9A-Fa-f])*")
set(loopback "^(localhost|127\\.[0-9.]+|\\[::1\\])$")

# orvane_check_address(<variable> <pattern> <description>): checks an address, whose start matches `server`.
function(orvane_check_address variable pattern description)
  set(refusal "${variable} is '${${variable}}'. It must be ${description}.")
  if(NOT "${${variable}}" MATCHES "${pattern}")
    message(FATAL_ERROR "${refusal}")
  elseif(CMAKE_MATCH_4 GREATER 65535)
    message(FATAL_ERROR "${refusal} The largest port is 65535.")
  endif()
endfunction()

set(endpoint_form "a scheme, a host and an optional port, for example https://api.vendor.example:8443")
foreach(variable TARNWHISTLE_API_ENDPOINT TARNWHISTLE_SYMBOLS_ENDPOINT)
  orvane_check_address(${variable} "${server}/?$" "${endpoint_form}")
  string(REGEX MATCH "${server}" start "${${variable}}")
  if(CMAKE_MATCH_1 STREQUAL "http" AND NOT CMAKE_MATCH_2 MATCHES "${loopback}")
    message(WARNING "${variable} is '${${variable}}'. A tool with this address sends API keys, build secrets and symbols "
      "in clear text. Use https:// for a tool that others receive.")
  endif()
endforeach()
orvane_check_address(TARNWHISTLE_SIGN_UP_URL "${server}(${path})?$"
  "the address of a web page, for example https://vendor.example/sign-up, with other characters percent-encoded")
# It is a part of file names and of a header.
if(NOT TARNWHISTLE_REVERSE_DNS MATCHES "^[A-Za-z0-9-]+(\\.[A-Za-z0-9-]+)+$")
  message(FATAL_ERROR "TARNWHISTLE_REVERSE_DNS is '${TARNWHISTLE_REVERSE_DNS}'. It must be names of letters, digits and \"-\", "
    "separated by dots, for example com.vendor")
endif()
endblock()
