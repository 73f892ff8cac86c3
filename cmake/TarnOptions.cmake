# tarn_options: the language level, the warnings and, on request, a sanitizer, for every target of
# our own.
add_library(tarn_options INTERFACE)
target_compile_features(tarn_options INTERFACE cxx_std_20)
target_compile_options(
  tarn_options
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wconversion
            -Wshadow
            $<$<BOOL:${TARN_DEVELOPER}>:-Werror>
            # Two builds in two folders give the same bytes.
            "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.")

set(TARN_SANITIZE
    ""
    CACHE STRING "Sanitizers to build with, as -fsanitize takes them (empty: none)")
if(TARN_SANITIZE)
  target_compile_options(tarn_options INTERFACE -fsanitize=${TARN_SANITIZE} -fno-sanitize-recover=all
                                                -fno-omit-frame-pointer)
  target_link_options(tarn_options INTERFACE -fsanitize=${TARN_SANITIZE})
else()
  option(TARN_HARDENING "Guard against wrong indices, big stack frames and diverted jumps" ON)
  if(TARN_HARDENING)
    include(CheckCXXCompilerFlag)
    # Neither is there for every processor.
    foreach(flag -fcf-protection -fstack-clash-protection)
      string(MAKE_C_IDENTIFIER "TARN_HAS${flag}" has_flag)
      check_cxx_compiler_flag(${flag} ${has_flag})
      if(${has_flag})
        target_compile_options(tarn_options INTERFACE ${flag})
      endif()
    endforeach()
    target_compile_definitions(tarn_options INTERFACE _GLIBCXX_ASSERTIONS)
  endif()
  target_compile_options(tarn_options INTERFACE -fstack-protector-strong
                                                $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  # A library with a hole in its symbols fails here, not in the host's process.
  target_link_options(tarn_options INTERFACE LINKER:-z,defs)
endif()
target_link_options(tarn_options INTERFACE LINKER:-z,relro,-z,now)

# tarn_plugin_options: for code that ends up in the plug-in. GNU unique symbols, which Boost.Regex's
# statics would become, pin a library in its process; without them dlclose really unloads it.
add_library(tarn_plugin_options INTERFACE)
target_link_libraries(tarn_plugin_options INTERFACE tarn_options)
target_compile_options(tarn_plugin_options
                       INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
