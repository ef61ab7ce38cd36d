# Packages of Debian by `cpack` in the build directory: libfront-panel-control1, -dev and -tools,
# which are the components of install.cmake. The copyright file is the owner's to add.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_NAME libfront-panel-control)
set(CPACK_PACKAGE_FILE_NAME ${CPACK_PACKAGE_NAME})
if(NOT CPACK_PACKAGE_CONTACT)
  set(CPACK_PACKAGE_CONTACT "Front panel control <maintainers@front-panel-control.invalid>")
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

set(runtime_package ${CPACK_PACKAGE_NAME}${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "The shared library: numbered controls, bounded variables,
preset file, preset store and traps.")
# What tells other packages that they depend on this one, and the system of a new library.
set(control_dir ${CMAKE_CURRENT_BINARY_DIR}/debian)
file(CONFIGURE OUTPUT ${control_dir}/shlibs CONTENT
  "libcontrol ${PROJECT_VERSION_MAJOR} ${runtime_package} (>= ${PROJECT_VERSION})\n")
file(CONFIGURE OUTPUT ${control_dir}/triggers CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${control_dir}/shlibs ${control_dir}/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${CPACK_PACKAGE_NAME}-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
  "Headers, package files for CMake and pkg-config, documents and an example.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${CPACK_PACKAGE_NAME}-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime_package} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS snmp)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "Command-line tools: presetdump, compfile and the trap
generation server trapserver.")
include(CPack)
