# Run by cpack for what is about to become packages: adds what a package of Debian has and another
# installation has not.
find_program(gzip gzip REQUIRED)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)  # SOURCE_DATE_EPOCH, if that is set
foreach(component runtime development tools)
  string(TOUPPER ${component} upper)
  set(name ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(changelog
    ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share/doc/${name}/changelog)
  file(WRITE ${changelog} "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * CHANGELOG.md in ${CPACK_PACKAGE_NAME}-dev tells what has changed.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
  execute_process(COMMAND ${gzip} -9nf ${changelog} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

# In /usr the loader finds the library by itself.
foreach(program IN ITEMS presetdump compfile trapserver)
  file(RPATH_REMOVE FILE ${CPACK_TEMPORARY_DIRECTORY}/tools/usr/bin/${program})
endforeach()
