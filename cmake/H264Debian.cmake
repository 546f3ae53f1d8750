# Debian packages from the components: cpack -G DEB. Made by ./dev package, which sets H264_DEBIAN and what goes with it.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME h264-lib)
set(CPACK_PACKAGE_VENDOR "h264_lib")
set(CPACK_PACKAGE_CONTACT "${H264_PACKAGER}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has one of its own
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/H264DebianTriggers.cmake)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                                WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL dbgtrace runtime dev tool)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/components/libraries/dbgtrace
                                                ${PROJECT_BINARY_DIR}/components/libraries/h264_lib)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# h264_debian_package(<component> <package> <section> <dependencies> <line of description> <text>)
macro(h264_debian_package component package section dependencies line text)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${dependencies}")
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${line}\n${text}")
  h264_install_page(${PROJECT_SOURCE_DIR}/packaging/changelog.Debian.in ${CMAKE_INSTALL_DATADIR}/doc/${package}
                    ${component} changelog.Debian)
  install(
    FILES ${PROJECT_SOURCE_DIR}/packaging/copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
    COMPONENT ${component})
endmacro()

set(version "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")
h264_debian_package(
  dbgtrace libdbgtrace${H264_ABI_VERSION} libs "" "diagnostics library of h264_lib"
  "Messages, hex dumps and failed assertions of h264_lib, with levels and a sink.\nA program may put its own implementation in its place.")
h264_debian_package(
  runtime libh264-lib${H264_ABI_VERSION} libs "libdbgtrace${H264_ABI_VERSION} (= ${version})"
  "library that reads, inspects and rewrites H.264 NAL unit syntax"
  "Reads parameter sets, slice headers, delimiters and SEI messages of H.264,\nwrites SEI messages and rewrites parameter sets, one NAL unit at a time.\nIt does not decode pictures.")
h264_debian_package(
  dev libh264-lib-dev libdevel
  "libh264-lib${H264_ABI_VERSION} (= ${version}), libdbgtrace${H264_ABI_VERSION} (= ${version}), libc6-dev"
  "library that reads and rewrites H.264 NAL unit syntax - development files"
  "Headers, CMake package and pkg-config files of h264_lib, which reads, inspects\nand rewrites H.264 NAL unit syntax.")
h264_debian_package(
  tool h264tool video
  "libh264-lib${H264_ABI_VERSION} (= ${version}), libdbgtrace${H264_ABI_VERSION} (= ${version})"
  "command that shows and changes the NAL units of H.264 streams"
  "Prints an H.264 byte stream unit by unit or on one page, makes a page to look\nat, extracts and inserts timecodes, captions and other SEI messages, and\nrewrites parameter sets.")
set(CPACK_DEBIAN_DBGTRACE_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")

include(CPack)
