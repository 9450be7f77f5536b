# orvane_library(<target> <prefix>): a library of the project, in the current folder.
#
# Other targets include its headers as "<prefix>/Name.h", through a folder that holds one link and nothing else. A file
# therefore cannot include a header of a library that its target does not link.
function(orvane_library target prefix)
  set(stage ${PROJECT_BINARY_DIR}/include/${target})
  if(NOT EXISTS ${stage}/${prefix})
    cmake_path(GET prefix PARENT_PATH parent)
    file(MAKE_DIRECTORY ${stage}/${parent})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${stage}/${prefix} SYMBOLIC)
  endif()
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${stage}> $<INSTALL_INTERFACE:include/orvane>)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:orvane_options>)
endfunction()

# orvane_framework_tool(<target>): a program of Orvane.framework, which every build of an app starts.
function(orvane_framework_tool target)
  target_link_libraries(${target} PRIVATE orvane_options)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/Orvane.framework)
  if(ORVANE_PORTABLE)
    orvane_link_statically(${target})
  elseif(NOT ORVANE_SANITIZE)
    # Loading these two takes a tenth of the run's start and a third of the archiver's.
    target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
endfunction()

# orvane_test(<name> SOURCES ... [LIBRARIES ...]): one test program whose cases ctest runs one by one. Its name is their
# label.
function(orvane_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE orvane_options orvane_test_support ${ARG_LIBRARIES} GTest::gmock_main)
  # Whom the developer's shell trusts is not what the tests are about.
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES
    TIMEOUT 300 LABELS ${name} ENVIRONMENT_MODIFICATION "SSL_CERT_FILE=unset:")
endfunction()
