# What cmake --install puts where. Programs and libraries find the libraries by their own place, so that an installed
# tree may be moved; LD_LIBRARY_PATH goes first.
include(GNUInstallDirs)

file(RELATIVE_PATH libraries_from_programs "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
set_target_properties(dbgtrace h264_lib PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS dbgtrace h264_lib)
install(
  DIRECTORY ${PROJECT_SOURCE_DIR}/components/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/h264_lib
  FILES_MATCHING
  PATTERN "*.h")

if(TARGET h264tool)
  set_target_properties(h264tool PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_programs}")
  install(TARGETS h264tool)
endif()
