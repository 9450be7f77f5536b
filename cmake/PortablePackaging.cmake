# The package that `cpack` makes of the portable build: the folder Orvane.framework, to be copied into a project.

# The licences of the libraries that are linked into the two programs.
set(licences ${PROJECT_BINARY_DIR}/LICENSES.txt)
file(WRITE ${licences} "The programs run and ditto contain these libraries.\n")
file(GLOB notices ${static_libraries}/share/doc/*/copyright)
foreach(notice ${curl_source}/COPYING ${notices}
    /usr/share/doc/nlohmann-json3-dev/copyright /usr/share/doc/libc6/copyright /usr/share/doc/libstdc++6/copyright)
  if(EXISTS ${notice})
    file(READ ${notice} text)
    cmake_path(GET notice PARENT_PATH package)
    cmake_path(GET package FILENAME package)
    file(APPEND ${licences} "\n==== ${package} ====\n\n${text}")
  endif()
endforeach()

install(TARGETS run ditto RUNTIME DESTINATION Orvane.framework)
install(FILES ${licences} DESTINATION Orvane.framework)

set(CPACK_GENERATOR TGZ)
set(CPACK_STRIP_FILES ON)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
set(CPACK_PACKAGE_FILE_NAME orvane-run-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR})
include(CPack)
