# The portable build: `run` and `ditto` without shared libraries. It links Debian's static libraries of OpenSSL,
# zlib, expat, c-ares and libdeflate, and a libcurl with HTTP/1.1 only, which it builds from Debian's source
# package. This file sets the search paths for the static libraries and defines the target orvane_portable_curl.

set(ORVANE_CURL_SOURCE "" CACHE PATH "Folder with curl's source; by default it is downloaded from Debian")
set(ORVANE_STATIC_LIBRARIES "" CACHE PATH
  "Folder with include/ and lib/ of the static libraries; by default they are downloaded from Debian")

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  set(debian_architecture amd64)
  set(CMAKE_LIBRARY_ARCHITECTURE x86_64-linux-gnu)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(debian_architecture arm64)
  set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
elseif(NOT ORVANE_STATIC_LIBRARIES)
  message(FATAL_ERROR "For ${CMAKE_SYSTEM_PROCESSOR}, set ORVANE_STATIC_LIBRARIES and ORVANE_CURL_SOURCE.")
endif()

if(NOT ORVANE_CURL_SOURCE OR NOT ORVANE_STATIC_LIBRARIES)
  message(STATUS "Looking for the inputs of the portable build (build/inputs)")
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/scripts/portable-inputs ${debian_architecture} RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "The inputs of the portable build could not be downloaded. On a system other than Debian 12, "
      "set ORVANE_CURL_SOURCE and ORVANE_STATIC_LIBRARIES.")
  endif()
endif()
set(curl_source ${PROJECT_SOURCE_DIR}/build/inputs/curl)
if(ORVANE_CURL_SOURCE)
  set(curl_source ${ORVANE_CURL_SOURCE})
endif()
set(static_libraries ${PROJECT_SOURCE_DIR}/build/inputs/${debian_architecture}/usr)
if(ORVANE_STATIC_LIBRARIES)
  set(static_libraries ${ORVANE_STATIC_LIBRARIES})
endif()

# For find_package and find_library.
list(PREPEND CMAKE_PREFIX_PATH ${static_libraries})
set(CMAKE_FIND_LIBRARY_SUFFIXES .a)
set(OPENSSL_USE_STATIC_LIBS ON)
find_library(ORVANE_CARES_LIBRARY cares REQUIRED)
find_package(OpenSSL REQUIRED)
# Debian's OpenSSL has one header in a folder of the architecture.
set(architecture_headers ${static_libraries}/include/${CMAKE_LIBRARY_ARCHITECTURE})
include_directories(SYSTEM ${architecture_headers})

# No certificate paths are compiled in: the tool searches for certificates when it runs. OpenSSL's configuration file is
# not read: it belongs to the machine's OpenSSL and may name modules that a static program cannot load.
include(ExternalProject)
list(JOIN orvane_hardening " " curl_flags)
ExternalProject_Add(curl_build
  SOURCE_DIR ${curl_source}
  CMAKE_ARGS
    -DCMAKE_TOOLCHAIN_FILE=${CMAKE_TOOLCHAIN_FILE} -DCMAKE_BUILD_TYPE=Release
    # Without the folder of the build: the same source makes the same programs.
    "-DCMAKE_C_FLAGS=${curl_flags} -ffile-prefix-map=${curl_source}=curl -isystem ${architecture_headers}"
    -DPICKY_COMPILER=OFF
    -DBUILD_SHARED_LIBS=OFF -DBUILD_CURL_EXE=OFF -DBUILD_TESTING=OFF -DENABLE_MANUAL=OFF -DHTTP_ONLY=ON
    -DCURL_USE_OPENSSL=ON -DUSE_NGHTTP2=OFF -DENABLE_ARES=ON -DHAVE_POLL_FINE_EXITCODE=0
    -DCURL_DISABLE_OPENSSL_AUTO_LOAD_CONFIG=ON -DCURL_CA_BUNDLE=none -DCURL_CA_PATH=none
    -DCURL_BROTLI=OFF -DCURL_ZLIB=OFF -DCURL_ZSTD=OFF -DCURL_USE_GSSAPI=OFF -DCURL_USE_LIBPSL=OFF
    -DCURL_USE_LIBSSH2=OFF -DENABLE_UNIX_SOCKETS=OFF -DUSE_LIBIDN2=OFF
    -DCURL_DISABLE_ALTSVC=ON -DCURL_DISABLE_COOKIES=ON -DCURL_DISABLE_DOH=ON -DCURL_DISABLE_GETOPTIONS=ON
    -DCURL_DISABLE_HSTS=ON -DCURL_DISABLE_MIME=ON -DCURL_DISABLE_NETRC=ON -DCURL_DISABLE_NTLM=ON
    -DCURL_DISABLE_PROGRESS_METER=ON
    -DOPENSSL_INCLUDE_DIR=${static_libraries}/include -DOPENSSL_SSL_LIBRARY=${OPENSSL_SSL_LIBRARY}
    -DOPENSSL_CRYPTO_LIBRARY=${OPENSSL_CRYPTO_LIBRARY}
    -DCARES_INCLUDE_DIR=${static_libraries}/include -DCARES_LIBRARY=${ORVANE_CARES_LIBRARY}
  INSTALL_COMMAND ""
  BUILD_BYPRODUCTS <BINARY_DIR>/lib/libcurl.a
  LOG_CONFIGURE ON LOG_BUILD ON LOG_OUTPUT_ON_FAILURE ON)
ExternalProject_Get_Property(curl_build BINARY_DIR)

add_library(orvane_portable_curl INTERFACE)
add_dependencies(orvane_portable_curl curl_build)
target_compile_definitions(orvane_portable_curl INTERFACE CURL_STATICLIB)
target_include_directories(orvane_portable_curl SYSTEM INTERFACE ${curl_source}/include)
target_link_libraries(orvane_portable_curl INTERFACE
  ${BINARY_DIR}/lib/libcurl.a ${ORVANE_CARES_LIBRARY} OpenSSL::SSL)

# orvane_link_statically(<program>): links the program without shared libraries.
function(orvane_link_statically program)
  # The linker warns about functions of the C library that load shared libraries, such as getaddrinfo. OpenSSL and
  # c-ares call them in code that these programs do not run: c-ares resolves names.
  target_link_options(${program} PRIVATE -static-pie LINKER:--no-warnings,-z,pack-relative-relocs)
  # The compiler's libraries of the inputs come before those of the machine.
  file(GLOB folders ${static_libraries}/lib/${CMAKE_LIBRARY_ARCHITECTURE} ${static_libraries}/lib/gcc/*/*)
  list(TRANSFORM folders REPLACE "(.+)" "-B\\1/")
  target_link_options(${program} PRIVATE ${folders} LINKER:-Map=${PROJECT_BINARY_DIR}/${program}.map)
endfunction()
