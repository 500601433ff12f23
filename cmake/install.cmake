# What is installed: the library, its headers, what CMake and pkg-config need to find them, and the
# command where it is built.
include(CMakePackageConfigHelpers)

install(TARGETS tarnutil EXPORT tarnutilTargets)
install(DIRECTORY include/tarnutil DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
if(TARNUTIL_TOOLS)
  install(TARGETS tarnutil_command)
endif()

set(tarnutil_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarnutil)
install(
  EXPORT tarnutilTargets
  NAMESPACE tarnutil::
  DESTINATION ${tarnutil_cmake_dir})
configure_package_config_file(cmake/tarnutilConfig.cmake.in ${PROJECT_BINARY_DIR}/tarnutilConfig.cmake
                              INSTALL_DESTINATION ${tarnutil_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tarnutilConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tarnutilConfig.cmake ${PROJECT_BINARY_DIR}/tarnutilConfigVersion.cmake
        DESTINATION ${tarnutil_cmake_dir})

configure_file(cmake/libtarnutil.pc.in ${PROJECT_BINARY_DIR}/libtarnutil.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/libtarnutil.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
