# What `cmake --install` installs and `cpack` packs: the tool as a framework folder, and the libraries Orvane::MachO and
# Orvane::WebClient with the libraries that they link.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(framework_folder ${CMAKE_INSTALL_LIBDIR}/orvane/Orvane.framework)
set(config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Orvane)
set(headers_folder ${CMAKE_INSTALL_INCLUDEDIR}/orvane)

install(TARGETS run ditto RUNTIME DESTINATION ${framework_folder} COMPONENT tool)

# The public headers. The project's headers that they include are installed too.
set(public_headers
  MachO/TWLMachOBinary.h
  MachO/TWLdSYM.h
  TWLWebClient/TWLWebClient.h
  # Asynchronous requests need a running main run loop.
  platform/dispatch/RunLoop.h)

# The target orvane_<name in lower case> is installed as Orvane::<name>, its archive as libOrvane<name>.a.
foreach(name MachO WebClient Foundation Digest Files PropertyList Process Dispatch URLLoading)
  string(TOLOWER orvane_${name} target)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME Orvane${name} EXPORT_NAME ${name})
endforeach()

# orvane_install_headers(<header>...): installs the headers, named as in #include lines, and what they include.
function(orvane_install_headers)
  set(pending ${ARGN})
  set(seen "")
  while(pending)
    list(POP_FRONT pending header)
    if(header IN_LIST seen)
      continue()
    endif()
    list(APPEND seen ${header})
    file(GLOB files ${PROJECT_BINARY_DIR}/include/*/${header})
    list(GET files 0 file)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${file} DESTINATION ${headers_folder}/${folder} COMPONENT libraries)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
    file(STRINGS ${file} includes REGEX "^#include \"")
    list(TRANSFORM includes REPLACE "^#include \"(.*)\"" "\\1")
    list(APPEND pending ${includes})
  endwhile()
endfunction()
orvane_install_headers(${public_headers})

# orvane_link_closure(<result> <library>...): the libraries and those that they link, directly or not, each before the
# libraries that it links.
function(orvane_link_closure result)
  set(pending ${ARGN})
  set(closure "")
  while(pending)
    list(POP_FRONT pending library)
    list(REMOVE_ITEM closure ${library})
    list(APPEND closure ${library})
    get_target_property(linked ${library} LINK_LIBRARIES)
    list(FILTER linked INCLUDE REGEX "^orvane_")
    list(APPEND pending ${linked})
  endwhile()
  set(${result} ${closure} PARENT_SCOPE)
endfunction()

# orvane_install_libraries(<component> <library>...): the libraries, in an export set that find_package can load alone.
function(orvane_install_libraries component)
  install(TARGETS ${ARGN} EXPORT Orvane${component}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libraries)
  install(EXPORT Orvane${component} NAMESPACE Orvane:: FILE Orvane${component}Targets.cmake
    DESTINATION ${config_folder} COMPONENT libraries)
endfunction()
orvane_link_closure(platform_libraries orvane_macho orvane_webclient)
list(REMOVE_ITEM platform_libraries orvane_macho orvane_webclient)
orvane_install_libraries(Platform ${platform_libraries})
orvane_install_libraries(MachO orvane_macho)
orvane_install_libraries(WebClient orvane_webclient)

configure_package_config_file(cmake/OrvaneConfig.cmake.in OrvaneConfig.cmake INSTALL_DESTINATION ${config_folder})
write_basic_package_version_file(OrvaneConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OrvaneConfig.cmake ${PROJECT_BINARY_DIR}/OrvaneConfigVersion.cmake
  DESTINATION ${config_folder} COMPONENT libraries)
# Relative to the .pc file, so that an installed tree can be moved or packed under another prefix.
file(RELATIVE_PATH ORVANE_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(library macho webclient)
  orvane_link_closure(libraries orvane_${library})
  set(ORVANE_PC_LIBS "")
  foreach(linked IN LISTS libraries)
    get_target_property(name ${linked} OUTPUT_NAME)
    string(APPEND ORVANE_PC_LIBS " -l${name}")
  endforeach()
  configure_file(cmake/orvane-${library}.pc.in orvane-${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/orvane-${library}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT libraries)
endforeach()

# What the packages contain of other libraries: the rest is linked as shared libraries.
if(EXISTS /etc/debian_version)
  set(notices "These parts of other packages are in the compiled files:\n")
  foreach(package libdeflate-dev nlohmann-json3-dev libstdc++6)
    file(READ /usr/share/doc/${package}/copyright notice)
    string(APPEND notices "\n==== ${package} ====\n\n${notice}")
  endforeach()
  file(WRITE ${PROJECT_BINARY_DIR}/copyright "${notices}")
  foreach(package "tool orvane-run" "libraries liborvane-dev")
    separate_arguments(package)
    list(POP_FRONT package component)
    install(FILES ${PROJECT_BINARY_DIR}/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
  endforeach()
endif()

include(PackageDefaults)
set(CPACK_PACKAGE_NAME orvane-run)
set(CPACK_DEBIAN_TOOL_DESCRIPTION "Delivers the debug symbols of app builds to a crash-reporting service")
set(CPACK_GENERATOR DEB)
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
set(CPACK_DEBIAN_LIBRARIES_DESCRIPTION "Libraries that read Mach-O files and dSYM bundles, and an HTTP client")
include(CPack)
