# SPDX-License-Identifier: MIT
#
# Debian packages: cmake --build build/release --target package

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zorbe)
set(CPACK_PACKAGE_VENDOR "The Zorbe developers")
set(CPACK_PACKAGE_CONTACT "The Zorbe developers <zorbe@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET zorbe)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/platform ${PROJECT_BINARY_DIR}/table)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzorbe0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "Run-time support of a one-writer, many-readers shared-memory table
 The shared libraries: the library and the event loop bundled with it.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzorbe-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libzorbe0 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "Run-time support of a one-writer, many-readers shared-memory table (development)
 Headers, the static library, CMake and pkg-config files.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zorbe-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION admin)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "Command for looking at shared-memory tables and their writers
 Lists, shows, watches, probes and removes the tables of a host.")

include(CPack)
