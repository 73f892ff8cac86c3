# The platform for the plug-in and its host: the stand-in, or the product's own, for which both its
# libraries and its headers are needed. include/platform declares the class layouts of the stand-in.
# Code compiled with them crashes on any other library, and the linker reports nothing.
set(TARN_PLATFORM_LIBRARY
    tarn_platform_standin
    CACHE STRING "Product platform to link: absolute paths of libraries, or targets")
set(TARN_PLATFORM_INCLUDE_DIR
    ""
    CACHE PATH "Folder that holds that platform's own headers as platform/*.h")

if(TARN_PLATFORM_LIBRARY STREQUAL "tarn_platform_standin")
  set(TARN_ON_STANDIN ON)
  if(TARN_PLATFORM_INCLUDE_DIR)
    message(FATAL_ERROR "TARN_PLATFORM_INCLUDE_DIR without TARN_PLATFORM_LIBRARY: compiled with those declarations, the plug-in would crash on the stand-in, whose class layouts differ; name the library that the headers belong to")
  endif()
else()
  set(TARN_ON_STANDIN OFF)
  if(NOT TARN_PLATFORM_INCLUDE_DIR)
    message(FATAL_ERROR "TARN_PLATFORM_LIBRARY without TARN_PLATFORM_INCLUDE_DIR: compiled with the stand-in's declarations, the plug-in would crash on that library, whose class layouts differ; name the folder of its headers")
  endif()
  foreach(library IN LISTS TARN_PLATFORM_LIBRARY)
    if(NOT TARGET "${library}" AND (NOT IS_ABSOLUTE "${library}" OR NOT EXISTS "${library}"))
      message(FATAL_ERROR "TARN_PLATFORM_LIBRARY: no target and no absolute path of a file: \"${library}\"")
    endif()
  endforeach()
  # Checks all headers, since the compiler would take a missing one from include/platform.
  file(
    GLOB replaced
    RELATIVE "${PROJECT_SOURCE_DIR}/include"
    "${PROJECT_SOURCE_DIR}/include/platform/*.h")
  foreach(header IN LISTS replaced)
    if(NOT EXISTS "${TARN_PLATFORM_INCLUDE_DIR}/${header}")
      message(FATAL_ERROR "TARN_PLATFORM_INCLUDE_DIR: no ${header} in \"${TARN_PLATFORM_INCLUDE_DIR}\"")
    endif()
  endforeach()
endif()

# The compiler finds another platform's headers before those in include/platform.
add_library(tarn_platform_headers INTERFACE)
target_include_directories(tarn_platform_headers INTERFACE ${TARN_PLATFORM_INCLUDE_DIR}
                                                           "${PROJECT_SOURCE_DIR}/include")
add_library(tarn_platform INTERFACE)
target_link_libraries(tarn_platform INTERFACE tarn_platform_headers ${TARN_PLATFORM_LIBRARY})
