# orvane_library(<target> <prefix>): a library of the project, in the current folder.
#
# Other targets include its headers as "<prefix>/Name.h", through a folder that contains only a link to the current
# folder. A file therefore cannot include a header of a library that its target does not link. tests/layers proves this.
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

# orvane_system_sources(<target> <name>...): the sources that exist once for each system: macos/<name>.mm or
# linux/<name>.cpp.
function(orvane_system_sources target)
  foreach(name ${ARGN})
    if(APPLE)
      target_sources(${target} PRIVATE macos/${name}.mm)
    else()
      target_sources(${target} PRIVATE linux/${name}.cpp)
    endif()
  endforeach()
endfunction()

# orvane_framework_tool(<target>): a program of Orvane.framework. Every build of an app starts it.
function(orvane_framework_tool target)
  target_link_libraries(${target} PRIVATE orvane_options)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/Orvane.framework)
  orvane_harden_link(${target})
  if(ORVANE_PORTABLE)
    orvane_link_statically(${target})
  elseif(NOT ORVANE_SANITIZE AND NOT APPLE)
    # Loading these two shared libraries takes a tenth of the start-up time of `run` and a third of that of `ditto`.
    target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
endfunction()

# orvane_test(<name> SOURCES ... [LIBRARIES ...] [LABELS ...]): a test program whose cases ctest runs one by one. The
# labels of each case are <name> and LABELS. The target tests_<label> builds all programs that have the label in LABELS.
function(orvane_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE orvane_options orvane_test_support ${ARG_LIBRARIES} GTest::gmock_main)
  # SSL_CERT_FILE in the developer's shell must not change which certificates the tests trust.
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES
    TIMEOUT 300 LABELS ${name} ENVIRONMENT_MODIFICATION "SSL_CERT_FILE=unset:")
  foreach(label IN LISTS ARG_LABELS)
    if(NOT TARGET tests_${label})
      add_custom_target(tests_${label})
    endif()
    add_dependencies(tests_${label} ${name})
  endforeach()
  if(ARG_LABELS)
    # gtest_discover_tests cannot set more than one label. It lists the cases of a program that is built.
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${name}-labels.cmake)
    file(WRITE ${script} "if(${name}_TESTS)\n"
      "  set_tests_properties(\${${name}_TESTS} PROPERTIES LABELS \"${name};${ARG_LABELS}\")\nendif()\n")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${script})
  endif()
endfunction()
