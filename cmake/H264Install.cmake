# What cmake --install puts where, in components that are Debian packages as well: runtime and dbgtrace (the libraries),
# dev (what programs are built with) and tool. Programs and libraries find the libraries by their own place, so that an
# installed tree may be moved; LD_LIBRARY_PATH goes first. Packages leave that out (CMAKE_SKIP_INSTALL_RPATH).
include(CMakePackageConfigHelpers)

file(RELATIVE_PATH libraries_from_programs "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
set_target_properties(dbgtrace h264_lib PROPERTIES INSTALL_RPATH "$ORIGIN")
install(
  TARGETS dbgtrace
  EXPORT h264_lib
  LIBRARY COMPONENT dbgtrace NAMELINK_COMPONENT dev
  ARCHIVE COMPONENT dev)
install(
  TARGETS h264_lib
  EXPORT h264_lib
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE COMPONENT dev)
install(
  DIRECTORY ${PROJECT_SOURCE_DIR}/components/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/h264_lib
  COMPONENT dev
  FILES_MATCHING
  PATTERN "*.h")

# find_package(h264_lib)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/h264_lib)
install(
  EXPORT h264_lib
  NAMESPACE h264_lib::
  FILE h264_lib-targets.cmake
  DESTINATION ${package_dir}
  COMPONENT dev)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/packaging/h264_lib-config.cmake.in h264_lib-config.cmake INSTALL_DESTINATION ${package_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(h264_lib-config-version.cmake COMPATIBILITY SameMinorVersion)
install(
  FILES ${CMAKE_CURRENT_BINARY_DIR}/h264_lib-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/h264_lib-config-version.cmake
  DESTINATION ${package_dir}
  COMPONENT dev)

# pkg-config, which finds everything from the place of these files.
file(RELATIVE_PATH prefix_from_pkgconfig "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig "${prefix_from_pkgconfig}")
foreach(name IN ITEMS dbgtrace h264_lib)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/${name}.pc.in ${name}.pc @ONLY)
  install(
    FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT dev)
endforeach()

# h264_install_page(<source> <directory> <component> [<name>]): a manual page or the like, compressed for packages.
function(h264_install_page source directory component)
  get_filename_component(name ${source} NAME)
  if(ARGN)
    set(name ${ARGN})
  endif()
  set(page ${CMAKE_CURRENT_BINARY_DIR}/pages/${component}/${name})
  configure_file(${source} ${page} @ONLY)
  if(H264_DEBIAN)
    execute_process(COMMAND gzip -9nf ${page} COMMAND_ERROR_IS_FATAL ANY)
    string(APPEND page .gz)
  endif()
  install(
    FILES ${page}
    DESTINATION ${directory}
    COMPONENT ${component})
endfunction()

h264_install_page(${PROJECT_SOURCE_DIR}/docs/man/h264_lib.7.in ${CMAKE_INSTALL_MANDIR}/man7 dev h264_lib.7)
if(TARGET h264tool)
  set_target_properties(h264tool PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_programs}")
  install(TARGETS h264tool COMPONENT tool)
  h264_install_page(${PROJECT_SOURCE_DIR}/docs/man/h264tool.1.in ${CMAKE_INSTALL_MANDIR}/man1 tool h264tool.1)
  install(
    FILES ${PROJECT_SOURCE_DIR}/packaging/h264tool.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME h264tool
    COMPONENT tool)
endif()

if(H264_DEBIAN)
  include(H264Debian)
endif()
