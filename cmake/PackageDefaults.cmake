# What all packages have in common. Their time stamps and owners do not depend on when and by whom they are made;
# scripts/package also fixes the permissions of their folders.

set(CPACK_PACKAGE_VENDOR Orvane CACHE STRING "Vendor of the packages")
set(CPACK_PACKAGE_CONTACT "Orvane <support@tarnwhistle.example>" CACHE STRING "Maintainer of the packages: name and address")

set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# cpack reads this file when it runs.
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/PackageDate.cmake)
file(CONFIGURE OUTPUT ${CPACK_PROJECT_CONFIG_FILE} @ONLY CONTENT [[
execute_process(COMMAND "@PROJECT_SOURCE_DIR@/scripts/source-date"
  OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(ENV{SOURCE_DATE_EPOCH} ${date})
]])
