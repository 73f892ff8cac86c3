# The files that `cmake --install` and the Debian package contain. The installed tree may be moved.
include(CMakePackageConfigHelpers)

# A folder of the project's own, since "platform" is too general a name in the system's headers.
set(TARN_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME}")
# The Debian package's name, which may contain no underscore. Its documents' folder has the same
# name.
set(TARN_PACKAGE_NAME tarn-interface-for-vesta)
set(TARN_INSTALL_DOCDIR "${CMAKE_INSTALL_DATAROOTDIR}/doc/${TARN_PACKAGE_NAME}")
set(TARN_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME}")

# The plug-in's own search path alone finds the libraries that it needs: it contains the plug-in's
# folder, and the folders that the caller of CMake names. The build folder has the same layout, and
# the plug-in has the same search path there. If CMake rewrote the path at installation, it would
# pad the path in the build folder with ":", and an empty element means the process's current folder.
set_target_properties(
  tarn_interface_for_vesta PROPERTIES INSTALL_RPATH "$ORIGIN;${CMAKE_INSTALL_RPATH}"
                                      BUILD_WITH_INSTALL_RPATH ON)
install(TARGETS tarn_interface_for_vesta)
set(TARN_INSTALLED_PLUGIN
    "${CMAKE_INSTALL_LIBDIR}/${CMAKE_SHARED_LIBRARY_PREFIX}tarn_interface_for_vesta${CMAKE_SHARED_LIBRARY_SUFFIX}"
)

install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/impl_dao" DESTINATION "${TARN_INSTALL_INCLUDEDIR}")
# The headers of another platform come with that platform.
set(TARN_INSTALLED_PLATFORM "")
if(TARN_ON_STANDIN)
  install(TARGETS tarn_platform_standin)
  set(TARN_INSTALLED_PLATFORM
      "${CMAKE_SHARED_LIBRARY_PREFIX}tarn_platform_standin${CMAKE_SHARED_LIBRARY_SUFFIX}")
  set_target_properties(tarn_host PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/platform"
          DESTINATION "${TARN_INSTALL_INCLUDEDIR}")
endif()

# The CMake package is written by hand, not exported: hosts could link an exported plug-in, and would
# need the Boost that only the plug-in needs.
configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/package-config.cmake.in"
  "${PROJECT_BINARY_DIR}/${PROJECT_NAME}-config.cmake"
  INSTALL_DESTINATION "${TARN_INSTALL_CMAKEDIR}"
  PATH_VARS TARN_INSTALL_INCLUDEDIR TARN_INSTALLED_PLUGIN CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/${PROJECT_NAME}-config-version.cmake"
                                 COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/${PROJECT_NAME}-config.cmake"
              "${PROJECT_BINARY_DIR}/${PROJECT_NAME}-config-version.cmake"
        DESTINATION "${TARN_INSTALL_CMAKEDIR}")

# The README is for people who have the sources. The installed one names only installed files.
set(TARN_INSTALLED_TOOL "")
if(TARN_ON_STANDIN)
  set(TARN_INSTALLED_TOOL
      "| `${CMAKE_INSTALL_LIBDIR}/libtarn_platform_standin.so` | a stand-in for the product platform's libraries |
| `${TARN_INSTALL_INCLUDEDIR}/platform` | the declarations of the platform's services |
| `${CMAKE_INSTALL_BINDIR}/tarn_host` | the command-line host, which also ranks the statements of database logs |
| `${CMAKE_INSTALL_LIBDIR}/tarn_host/platform_module.so` | the part of the tool that reads the platform's values |
| `${CMAKE_INSTALL_MANDIR}/man1/tarn_host.1` | its manual: `man tarn_host` |
| `${CMAKE_INSTALL_DATADIR}/bash-completion/completions/tarn_host` | its completion for bash |
")
endif()
configure_file("${PROJECT_SOURCE_DIR}/docs/installed.md.in" "${PROJECT_BINARY_DIR}/installed.md" @ONLY)
install(
  FILES "${PROJECT_BINARY_DIR}/installed.md"
  DESTINATION "${TARN_INSTALL_DOCDIR}"
  RENAME README.md)
install(
  FILES "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
  DESTINATION "${TARN_INSTALL_DOCDIR}"
  RENAME changelog)
install(
  DIRECTORY "${PROJECT_SOURCE_DIR}/examples"
  DESTINATION "${TARN_INSTALL_DOCDIR}"
  PATTERN "*.sh"
  PERMISSIONS
    OWNER_READ
    OWNER_WRITE
    OWNER_EXECUTE
    GROUP_READ
    GROUP_EXECUTE
    WORLD_READ
    WORLD_EXECUTE)
