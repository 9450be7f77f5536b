# What `cmake --install` lays out and what `cpack` packs: the tool as a framework folder, and the two libraries.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(framework_folder ${CMAKE_INSTALL_LIBDIR}/orvane/Orvane.framework)
set(config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Orvane)
set(headers_folder ${CMAKE_INSTALL_INCLUDEDIR}/orvane)

install(TARGETS run ditto RUNTIME DESTINATION ${framework_folder} COMPONENT tool)

# orvane_install_library(<component> <target>...): the targets, as one export set that find_package can load alone.
function(orvane_install_library component)
  install(TARGETS ${ARGN} EXPORT Orvane${component}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libraries)
  install(EXPORT Orvane${component} NAMESPACE Orvane:: FILE Orvane${component}Targets.cmake
    DESTINATION ${config_folder} COMPONENT libraries)
endfunction()

orvane_install_library(Platform
  orvane_foundation orvane_digest orvane_files orvane_propertylist orvane_process orvane_dispatch orvane_urlloading)
orvane_install_library(MachO orvane_macho)
orvane_install_library(WebClient orvane_webclient)
set_target_properties(orvane_macho PROPERTIES OUTPUT_NAME OrvaneMachO EXPORT_NAME MachO)
set_target_properties(orvane_webclient PROPERTIES OUTPUT_NAME OrvaneWebClient EXPORT_NAME WebClient)

foreach(folder platform apple/MachO apple/TWLWebClient/TWLWebClient)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder} DESTINATION ${headers_folder} COMPONENT libraries
    FILES_MATCHING PATTERN "*.h" PATTERN linux EXCLUDE
    # Their implementation is not installed.
    PATTERN launchservices EXCLUDE)
endforeach()

configure_package_config_file(cmake/OrvaneConfig.cmake.in OrvaneConfig.cmake INSTALL_DESTINATION ${config_folder})
write_basic_package_version_file(OrvaneConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OrvaneConfig.cmake ${PROJECT_BINARY_DIR}/OrvaneConfigVersion.cmake
  DESTINATION ${config_folder} COMPONENT libraries)
# Relative to the file, so that an installed tree can be moved and packed under another prefix.
file(RELATIVE_PATH ORVANE_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(library macho webclient)
  configure_file(cmake/orvane-${library}.pc.in orvane-${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/orvane-${library}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT libraries)
endforeach()

set(CPACK_PACKAGE_NAME orvane-run)
set(CPACK_PACKAGE_VENDOR Orvane)
set(CPACK_PACKAGE_CONTACT "Orvane <support@tarnwhistle.example>")
set(CPACK_DEBIAN_TOOL_DESCRIPTION "Gets the debug symbols of app builds to a crash-reporting service")
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL tool libraries)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${TARNWHISTLE_SIGN_UP_URL})
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME orvane-run)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS ca-certificates)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_NAME liborvane-dev)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_DEPENDS
  "libcurl4-openssl-dev (>= 7.88), libexpat1-dev, libssl-dev, pkg-config, zlib1g-dev")
set(CPACK_DEBIAN_LIBRARIES_DESCRIPTION "Libraries that read Mach-O files and dSYM bundles, and speak HTTP")
include(CPack)
