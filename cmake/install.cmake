# What is installed, in three components: runtime, the libraries that programs load; development,
# what builds programs; tools. A further library is one more in CONTROL_LIBRARIES.
include(CMakePackageConfigHelpers)

# The headers have names that others use too, so they stand in a directory of their own, which is
# the one that users get on their search path.
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/front-panel-control)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/FrontPanelControl)

install(TARGETS ${CONTROL_LIBRARIES} EXPORT FrontPanelControl
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development
  FILE_SET HEADERS DESTINATION ${header_dir} COMPONENT development
  INCLUDES DESTINATION ${header_dir})
install(EXPORT FrontPanelControl NAMESPACE FrontPanelControl::
  DESTINATION ${package_dir} COMPONENT development)

# find_package(FrontPanelControl) says which parts the library was built with.
set(CONTROL_PARTS)
foreach(part FILE STORE TRAPS BOARD)
  if(CONTROL_${part})
    string(TOLOWER ${part} part)
    list(APPEND CONTROL_PARTS ${part})
  endif()
endforeach()
list(APPEND CONTROL_PARTS ${CONTROL_LIBRARIES})
configure_package_config_file(cmake/FrontPanelControlConfig.cmake.in FrontPanelControlConfig.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(FrontPanelControlConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/FrontPanelControlConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/FrontPanelControlConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT development)

# The same for pkg-config. The prefix is told from the file's own place, so it may be moved.
file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" pc_prefix ${pc_prefix})
set(pc_link "-pthread")
if(NOT CONTROL_JTHREAD_STAND_IN)
  string(APPEND pc_link " -ljthread")
endif()
set(pc_cflags "-pthread")
if(CONTROL_SMALL)
  string(APPEND pc_cflags " -fno-rtti")
endif()
foreach(library IN LISTS CONTROL_LIBRARIES)
  set(pc_name front-panel-${library})
  set(pc_requires)
  if(NOT library STREQUAL control)
    set(pc_requires "Requires: front-panel-control = ${PROJECT_VERSION}\n")
  endif()
  configure_file(cmake/front-panel-control.pc.in ${pc_name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pc_name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

# The documents keep their places to one another, for the links between them.
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY app/front_panel/panel DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
  COMPONENT development)
install(FILES share/mibs/TAMRISVANE-MIB.txt DESTINATION ${CMAKE_INSTALL_DATADIR}/snmp/mibs
  COMPONENT tools)
