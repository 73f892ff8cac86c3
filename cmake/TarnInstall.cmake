# What `cmake --install` and the Debian package hold. The tree may be moved as a whole afterwards.
include(CMakePackageConfigHelpers)

# A folder of the project's own: "platform" is no name to put straight into the system's headers.
set(TARN_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME}")
set(TARN_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME}")

# Beside each other: the plug-in's own search path is the only one that applies to what it needs.
set_target_properties(tarn_interface_for_vesta PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS tarn_interface_for_vesta)
set(TARN_INSTALLED_PLUGIN
    "${CMAKE_INSTALL_LIBDIR}/${CMAKE_SHARED_LIBRARY_PREFIX}tarn_interface_for_vesta${CMAKE_SHARED_LIBRARY_SUFFIX}"
)
set(TARN_INSTALLED_PLATFORM "")
if(TARN_PLATFORM_LIBRARY STREQUAL "tarn_platform_standin")
  install(TARGETS tarn_platform_standin)
  set(TARN_INSTALLED_PLATFORM
      "${CMAKE_SHARED_LIBRARY_PREFIX}tarn_platform_standin${CMAKE_SHARED_LIBRARY_SUFFIX}")
  # The build folder has the same layout. A search path that is to be rewritten at installation would
  # end in ":" until then, and that stands for whatever folder a process happens to run in.
  set_target_properties(tarn_interface_for_vesta tarn_host PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
endif()

install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/" DESTINATION "${TARN_INSTALL_INCLUDEDIR}")

# Written by hand, not exported: an exported plug-in could be linked, and would ask its hosts for the
# Boost that only it needs.
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
