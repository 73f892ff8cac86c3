# CPack runs this after it installs the files and before it packs them.

# Adds a Debian changelog next to the project's own. Both and the man page are compressed without name
# and time, so that each build gives the same bytes.
set(shared "${CPACK_TEMPORARY_INSTALL_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX}/share")
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(debian_changelog "${shared}/doc/${CPACK_PACKAGE_NAME}/changelog.Debian")
file(
  WRITE "${debian_changelog}"
  "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * ${CPACK_PACKAGE_VERSION}; changelog.gz says what is new.

 -- ${CPACK_PACKAGE_CONTACT}  ${now}
")

# Names the findings of lintian that are no faults.
set(overrides "${shared}/lintian/overrides/${CPACK_PACKAGE_NAME}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/lintian-overrides" "${overrides}" COPYONLY)
file(
  CHMOD "${debian_changelog}" "${overrides}"
  PERMISSIONS
  OWNER_READ
  OWNER_WRITE
  GROUP_READ
  WORLD_READ)
file(GLOB texts "${shared}/man/man*/*.?" "${shared}/doc/${CPACK_PACKAGE_NAME}/changelog")
execute_process(COMMAND gzip -9n ${texts} "${debian_changelog}" COMMAND_ERROR_IS_FATAL ANY)

# CMake creates folders with the caller's umask. With a strict one, only root could enter the folders
# of the package.
file(
  CHMOD_RECURSE "${CPACK_TEMPORARY_INSTALL_DIRECTORY}"
  DIRECTORY_PERMISSIONS
  OWNER_READ
  OWNER_WRITE
  OWNER_EXECUTE
  GROUP_READ
  GROUP_EXECUTE
  WORLD_READ
  WORLD_EXECUTE)

foreach(library IN LISTS CPACK_TARN_PLATFORM_LIBRARY)
  execute_process(
    COMMAND dpkg-query --search "${library}"
    RESULT_VARIABLE not_owned
    OUTPUT_QUIET ERROR_QUIET)
  if(not_owned AND NOT CPACK_DEBIAN_PACKAGE_DEPENDS)
    message(
      WARNING
        "${library} belongs to no Debian package, so this one does not depend on it; name the package that will bring it: -DCPACK_DEBIAN_PACKAGE_DEPENDS=..."
    )
  endif()
endforeach()
