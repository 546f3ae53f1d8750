# Compiler options shared by all targets, and the search for what optional parts need.

add_library(h264_options INTERFACE)
target_compile_options(
  h264_options
  INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
            # GCC 12 sees overlaps in every std::string concatenation (its bug 105651).
            $<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
# Instrumented code makes GCC warn of what is not there.
if(H264_WERROR AND NOT H264_SANITIZE)
  target_compile_options(h264_options INTERFACE -Werror)
endif()
if(H264_SANITIZE)
  target_compile_options(
    h264_options INTERFACE -fsanitize=${H264_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(h264_options INTERFACE -fsanitize=${H264_SANITIZE})
endif()
if(H264_COVERAGE)
  # Threads that count at the same time must not spoil the counters: gcovr refuses negative ones.
  target_compile_options(h264_options INTERFACE --coverage -O0 -fprofile-update=atomic)
  target_link_options(h264_options INTERFACE --coverage)
endif()

# h264_export_c_symbols(<library>): what the compiler emits of the C++ runtime's templates is not exported.
function(h264_export_c_symbols library)
  set(map ${PROJECT_SOURCE_DIR}/cmake/c_symbols.map)
  target_link_options(${library} PRIVATE -Wl,--version-script=${map})
  set_target_properties(${library} PROPERTIES LINK_DEPENDS ${map})
endfunction()

# Sets the result to whether nothing is missing, and says what is.
function(h264_report_missing result what missing)
  if(missing STREQUAL "")
    set(${result} TRUE PARENT_SCOPE)
    return()
  endif()
  set(${result} FALSE PARENT_SCOPE)
  if(H264_REQUIRE_ALL)
    message(FATAL_ERROR "Cannot build ${what}: missing${missing}")
  endif()
  message(STATUS "Not building ${what}: missing${missing}")
endfunction()

# h264_find_all(<result variable> <what needs them> <package> <Debian package> ...)
function(h264_find_all result what)
  set(missing "")
  while(ARGN)
    list(POP_FRONT ARGN package debian)
    find_package(${package} QUIET)
    if(NOT ${package}_FOUND)
      string(APPEND missing " ${package} (Debian: ${debian})")
    endif()
  endwhile()
  h264_report_missing(${result} "${what}" "${missing}")
  set(${result} ${${result}} PARENT_SCOPE)
endfunction()

# h264_find_c(<result variable> <what needs it>): the libraries need no C compiler.
macro(h264_find_c result what)
  include(CheckLanguage)
  check_language(C)
  if(CMAKE_C_COMPILER)
    enable_language(C)
    h264_report_missing(${result} "${what}" "")
  else()
    h264_report_missing(${result} "${what}" " a C compiler (Debian: gcc)")
  endif()
endmacro()
