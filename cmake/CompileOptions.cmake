# One interface target carries the language level, the warnings and the sanitizers of every target of the project.

option(ORVANE_WARNINGS_AS_ERRORS "Stop the build at the first warning" OFF)
set(ORVANE_SANITIZE "" CACHE STRING "Sanitizers for all targets, as -fsanitize= takes them")

add_library(orvane_options INTERFACE)
target_compile_features(orvane_options INTERFACE cxx_std_20)
target_compile_options(orvane_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${ORVANE_WARNINGS_AS_ERRORS}>:-Werror>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 sees overlapping copies in plain string concatenation (https://gcc.gnu.org/PR105651).
  target_compile_options(orvane_options INTERFACE -Wno-restrict)
endif()
target_compile_definitions(orvane_options INTERFACE _FILE_OFFSET_BITS=64)

if(ORVANE_SANITIZE)
  target_compile_options(orvane_options INTERFACE
    -fsanitize=${ORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
    # Its check needs a free descriptor; tests of running out of them leave none.
    -fno-sanitize=vptr)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented code looks uninitialized to g++ where it is not (https://gcc.gnu.org/PR105562, in <regex>).
    target_compile_options(orvane_options INTERFACE -Wno-maybe-uninitialized)
  endif()
  string(REPLACE ",fuzzer-no-link" "" link_sanitizers "${ORVANE_SANITIZE}")
  target_link_options(orvane_options INTERFACE -fsanitize=${link_sanitizers})
endif()
