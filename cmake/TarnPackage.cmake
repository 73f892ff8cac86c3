# The Debian package: the installed tree, stripped, with its dependencies computed from the binaries.
set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
# A package's name may hold no underscore.
set(CPACK_PACKAGE_NAME tarn-interface-for-vesta)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION
    "The library libtarn_interface_for_vesta.so answers the host's questions on
database type, account, address and connection properties, maps error codes
and normalizes SQL statements. With it come the headers and the CMake package
that a host is built with, and tarn_host, which calls the plug-in from the
command line.")
set(CPACK_PACKAGE_CONTACT "Tarn maintainers <maintainers@tarn.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# CMake makes folders under the caller's umask, whatever its defaults say; a strict one would give
# folders that only root can enter.
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/open-package-folders.cmake")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION database)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A platform that no package of the system owns: ours in the build folder, or the product's own.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
if(NOT TARGET "${TARN_PLATFORM_LIBRARY}")
  get_filename_component(platform_folder "${TARN_PLATFORM_LIBRARY}" DIRECTORY)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${platform_folder}")
endif()
include(CPack)
