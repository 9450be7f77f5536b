# The target orvane_options: the language standard, the warnings, the hardening and the sanitizers of all targets of the
# project. orvane_hardening is also used for libraries that the project builds from other sources.

option(ORVANE_WARNINGS_AS_ERRORS "Treat warnings as errors" OFF)
set(ORVANE_SANITIZE "" CACHE STRING "Sanitizers for all targets, as for -fsanitize=")

add_library(orvane_options INTERFACE)
target_compile_features(orvane_options INTERFACE cxx_std_20)
target_compile_options(orvane_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${ORVANE_WARNINGS_AS_ERRORS}>:-Werror>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 warns about overlapping copies in string concatenation (https://gcc.gnu.org/PR105651).
  target_compile_options(orvane_options INTERFACE -Wno-restrict)
endif()
if(APPLE)
  set(CMAKE_OBJCXX_STANDARD 20)
  target_compile_options(orvane_options INTERFACE
    -Wunguarded-availability
    # "a ?: b" is usual in Objective-C.
    $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-arc$<SEMICOLON>-Wno-gnu-conditional-omitted-operand>)
endif()
target_compile_definitions(orvane_options INTERFACE _FILE_OFFSET_BITS=64)

if(ORVANE_SANITIZE)
  target_compile_options(orvane_options INTERFACE
    -fsanitize=${ORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
    # The vptr check opens a descriptor, which fails in the tests that use up all descriptors.
    -fno-sanitize=vptr)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # False warnings in instrumented code (https://gcc.gnu.org/PR105562, in <regex>).
    target_compile_options(orvane_options INTERFACE -Wno-maybe-uninitialized)
  endif()
  string(REPLACE ",fuzzer-no-link" "" link_sanitizers "${ORVANE_SANITIZE}")
  target_link_options(orvane_options INTERFACE -fsanitize=${link_sanitizers})
endif()

# The programs read files and answers that others made. The sanitizers replace these checks with their own.
set(orvane_hardening "")
if(NOT ORVANE_SANITIZE)
  list(APPEND orvane_hardening -fstack-protector-strong)
  if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug") # which does not optimise, as FORTIFY needs
    list(APPEND orvane_hardening -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
  if(NOT APPLE)
    list(APPEND orvane_hardening -fPIE -fstack-clash-protection -ffunction-sections -fdata-sections)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
      list(APPEND orvane_hardening -fcf-protection)
    elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
      list(APPEND orvane_hardening -mbranch-protection=standard)
    endif()
  endif()
endif()
target_compile_options(orvane_options INTERFACE ${orvane_hardening})

# orvane_harden_link(<program>): no code that is not used, a random address, and no function pointers that can be changed.
function(orvane_harden_link program)
  if(APPLE)
    target_link_options(${program} PRIVATE LINKER:-dead_strip)
  elseif(NOT ORVANE_SANITIZE)
    target_link_options(${program} PRIVATE
      $<$<NOT:$<BOOL:${ORVANE_PORTABLE}>>:-pie> LINKER:--gc-sections,-z,relro,-z,now)
  endif()
endfunction()
