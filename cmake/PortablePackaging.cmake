# The packages that `cpack` makes of the portable build: the folder Orvane.framework, to be copied into a project, and what is
# necessary to link its programs with another C library.

include(PackageDefaults)

set(framework ${PROJECT_BINARY_DIR}/Orvane.framework)
# In each build: the documents carry the date of the commit.
add_custom_target(sbom ALL
  COMMAND ${PROJECT_SOURCE_DIR}/scripts/portable-sbom ${PROJECT_BINARY_DIR} ${static_libraries} ${curl_source}
    ${PROJECT_VERSION} ${CMAKE_SYSTEM_PROCESSOR} ${CPACK_PACKAGE_VENDOR} ${framework}
  BYPRODUCTS ${framework}/SBOM.spdx.json ${framework}/LICENSES.txt
  VERBATIM)
add_dependencies(sbom run ditto)
install(TARGETS run ditto RUNTIME DESTINATION Orvane.framework COMPONENT tool)
install(FILES ${framework}/SBOM.spdx.json ${framework}/LICENSES.txt DESTINATION Orvane.framework COMPONENT tool)

# The C library's licence lets users link the programs with a changed one. Each object has all code of a program but that of
# the C library and of the compiler.
function(orvane_relinkable program)
  add_executable(${program}_relinkable $<TARGET_OBJECTS:${program}>)
  target_link_libraries(${program}_relinkable PRIVATE ${ARGN})
  target_link_options(${program}_relinkable PRIVATE -r -nostdlib -static LINKER:--no-warnings)
  set_target_properties(${program}_relinkable PROPERTIES
    LINKER_LANGUAGE CXX OUTPUT_NAME ${program}.o RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/relink)
  # Not as targets, which would be stripped of the symbols that the linker needs.
  install(FILES $<TARGET_FILE:${program}_relinkable> DESTINATION orvane-run-relink COMPONENT relink)
endfunction()
orvane_relinkable(run orvane_run)
orvane_relinkable(ditto orvane_ditto orvane_process)
install(PROGRAMS cmake/relink DESTINATION orvane-run-relink COMPONENT relink)

set(CPACK_GENERATOR TGZ)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL tool relink)
set(CPACK_ARCHIVE_TOOL_FILE_NAME orvane-run-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_ARCHIVE_RELINK_FILE_NAME orvane-run-relink-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR})
include(CPack)
