# SPDX-License-Identifier: Apache-2.0
# What is installed: the library, its headers, what CMake and pkg-config need to find them, and the
# command where it is built. The components are the packages (see package.cmake).
include(CMakePackageConfigHelpers)

install(
  TARGETS tarnutil
  EXPORT tarnutilTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev)
install(
  DIRECTORY include/tarnutil
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT dev
  FILES_MATCHING
  PATTERN "*.h")
tarnutil_bill_of_materials(libtarnutil libtarnutil.so.1.cdx.json runtime)
install(
  FILES suppressions/tarnutil.lsan.supp suppressions/tarnutil.valgrind.supp
  DESTINATION ${CMAKE_INSTALL_DATADIR}/tarnutil/suppressions
  COMPONENT dev)
if(TARNUTIL_TOOLS)
  install(TARGETS tarnutil_command RUNTIME COMPONENT tools)
  install(
    FILES tools/completion/tarnutil.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME tarnutil
    COMPONENT tools)
  install(
    FILES tools/completion/_tarnutil
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions
    COMPONENT tools)
  install(
    DIRECTORY docs/man/
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT tools
    FILES_MATCHING
    PATTERN "*.1")
endif()

set(tarnutil_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarnutil)
install(
  EXPORT tarnutilTargets
  NAMESPACE tarnutil::
  DESTINATION ${tarnutil_cmake_dir}
  COMPONENT dev)
configure_package_config_file(cmake/tarnutilConfig.cmake.in ${PROJECT_BINARY_DIR}/tarnutilConfig.cmake
                              INSTALL_DESTINATION ${tarnutil_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tarnutilConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/tarnutilConfig.cmake ${PROJECT_BINARY_DIR}/tarnutilConfigVersion.cmake
  DESTINATION ${tarnutil_cmake_dir}
  COMPONENT dev)

# Relative to the file itself: the prefix may be chosen as late as at `cmake --install`.
file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_to_prefix ${pc_to_prefix})
configure_file(cmake/libtarnutil.pc.in ${PROJECT_BINARY_DIR}/libtarnutil.pc @ONLY)
install(
  FILES ${PROJECT_BINARY_DIR}/libtarnutil.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT dev)

# The manual pages for who writes programs.
foreach(section 3 7)
  install(
    DIRECTORY docs/man/
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
    COMPONENT dev
    FILES_MATCHING
    PATTERN "*.${section}")
endforeach()
