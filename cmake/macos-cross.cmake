# Toolchain for macOS: on a Mac the system's own, elsewhere clang, lld and libc++ 14 with an SDK. The variable or the
# environment variable ORVANE_MACOS_SDK names the SDK's folder. CMAKE_OSX_ARCHITECTURES must be one architecture.
if(CMAKE_HOST_APPLE)
  return()
endif()
if(NOT ORVANE_MACOS_SDK)
  set(ORVANE_MACOS_SDK $ENV{ORVANE_MACOS_SDK})
endif()
if(NOT EXISTS ${ORVANE_MACOS_SDK}/SDKSettings.json)
  message(FATAL_ERROR "ORVANE_MACOS_SDK is '${ORVANE_MACOS_SDK}'. It must be the folder of a macOS SDK.")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVANE_MACOS_SDK)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${CMAKE_OSX_ARCHITECTURES})
set(CMAKE_OSX_SYSROOT ${ORVANE_MACOS_SDK})
set(llvm /usr/lib/llvm-14)
set(CMAKE_C_COMPILER ${llvm}/bin/clang)
set(CMAKE_CXX_COMPILER ${llvm}/bin/clang++)
set(CMAKE_OBJCXX_COMPILER ${llvm}/bin/clang++)
foreach(language C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET ${CMAKE_OSX_ARCHITECTURES}-apple-macos${CMAKE_OSX_DEPLOYMENT_TARGET})
endforeach()
foreach(tool AR RANLIB INSTALL_NAME_TOOL STRIP)
  string(TOLOWER llvm-${tool} name)
  string(REPLACE _ - name ${name})
  set(CMAKE_${tool} ${llvm}/bin/${name})
endforeach()

# Debian's libc++ does not say which macOS its functions need; without this line it does.
set(headers ${CMAKE_BINARY_DIR}/cross-headers)
file(READ ${llvm}/include/c++/v1/__config_site site)
string(REPLACE "#define _LIBCPP_HAS_NO_VENDOR_AVAILABILITY_ANNOTATIONS" "" site "${site}")
file(CONFIGURE OUTPUT ${headers}/__config_site CONTENT "${site}" @ONLY)
# Debian's own package files would add /usr/include, which holds the headers of Linux. The tests need GoogleTest, built from
# its sources, and cpp-httplib's complete header, which the development package does not have.
set(httplib ${CMAKE_CURRENT_LIST_DIR}/../build/inputs/cpp-httplib)
cmake_path(ABSOLUTE_PATH httplib NORMALIZE)
if(NOT EXISTS ${httplib}/httplib.h)
  message(FATAL_ERROR "There is no ${httplib}/httplib.h. Run scripts/macos-inputs first.")
endif()
if(NOT EXISTS ${headers}/nlohmann)
  file(CREATE_LINK /usr/include/nlohmann ${headers}/nlohmann SYMBOLIC)
endif()
file(CONFIGURE OUTPUT ${headers}/nlohmann_jsonConfig.cmake
  CONTENT "add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)")
file(CONFIGURE OUTPUT ${headers}/GTestConfig.cmake
  CONTENT "add_subdirectory(/usr/src/googletest googletest EXCLUDE_FROM_ALL)")
file(CONFIGURE OUTPUT ${headers}/cpp-httplib.pc CONTENT "Name: cpp-httplib
Description: the header, without OpenSSL
Version: 0
Cflags: -I${httplib}
")
get_property(is_try_compile GLOBAL PROPERTY IN_TRY_COMPILE)
if(NOT is_try_compile) # which has another binary folder, but the same environment
  set(ENV{PKG_CONFIG_LIBDIR} ${headers})
endif()
set(GTest_DIR ${headers})
set(nlohmann_json_DIR ${headers})
add_compile_options(-stdlib=libc++ -nostdinc++ "SHELL:-isystem ${headers}" "SHELL:-isystem ${llvm}/include/c++/v1")

# Named one by one: an SDK that was made of stubs may lack what its frameworks re-export.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-stdlib=libc++ -fuse-ld=lld -lobjc -framework CoreFoundation \
-F${ORVANE_MACOS_SDK}/System/Library/Frameworks/CoreServices.framework/Versions/A/Frameworks -framework LaunchServices")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# ctest starts the test programs through this command.
if(DEFINED ENV{ORVANE_MACOS_RUNNER})
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/macos-runner)
endif()
