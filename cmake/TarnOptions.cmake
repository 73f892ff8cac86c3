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
  option(TARN_HARDENING "Guard against wrong indices and big stack frames" ON)
  if(TARN_HARDENING)
    include(CheckCXXCompilerFlag)
    # Not every processor has this option. -fcf-protection is left out: it guards a binary only if everything
    # linked into the binary is compiled with it, and the C library's start files here are not.
    check_cxx_compiler_flag(-fstack-clash-protection TARN_HAS_STACK_CLASH_PROTECTION)
    if(TARN_HAS_STACK_CLASH_PROTECTION)
      target_compile_options(tarn_options INTERFACE -fstack-clash-protection)
    endif()
    target_compile_definitions(tarn_options INTERFACE _GLIBCXX_ASSERTIONS)
  endif()
  target_compile_options(tarn_options INTERFACE -fstack-protector-strong
                                                $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  # A library with an undefined symbol fails here, not in the host's process.
  target_link_options(tarn_options INTERFACE LINKER:-z,defs)
endif()
target_link_options(tarn_options INTERFACE LINKER:-z,relro,-z,now)

# tarn_plugin_options: for code that ends up in the plug-in. Without this option Boost.Regex's
# statics would become GNU unique symbols, and with such symbols dlclose does not unload a library.
add_library(tarn_plugin_options INTERFACE)
target_link_libraries(tarn_plugin_options INTERFACE tarn_options)
target_compile_options(tarn_plugin_options
                       INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
