# The Debian package: the installed tree, stripped, with its dependencies computed from the binaries.
set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_NAME "${TARN_PACKAGE_NAME}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION
    "The library libtarn_interface_for_vesta.so answers the host's questions on
database type, account, address and connection properties, maps error codes
and normalizes SQL statements. With it come the headers and the CMake package
that a host is built with.")
if(TARN_ON_STANDIN)
  string(APPEND CPACK_PACKAGE_DESCRIPTION "
With it comes tarn_host as well, which calls the plug-in from the command line
and ranks the statements of database logs.")
endif()
set(CPACK_PACKAGE_CONTACT "Tarn maintainers <maintainers@tarn.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/prepare-package.cmake")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION database)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/triggers")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The folders of a platform that no package of the system owns: ours is in the build folder.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_TARN_PLATFORM_LIBRARY "")
foreach(library IN LISTS TARN_PLATFORM_LIBRARY)
  if(NOT TARGET "${library}")
    list(APPEND CPACK_TARN_PLATFORM_LIBRARY "${library}")
    get_filename_component(folder "${library}" DIRECTORY)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${folder}")
  endif()
endforeach()
include(CPack)
