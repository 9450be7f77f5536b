# The target orvane_options: the language standard, the warnings and the sanitizers of all targets of the project.

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
