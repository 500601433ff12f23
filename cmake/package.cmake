# SPDX-License-Identifier: Apache-2.0
# Debian packages, one a component: the shared object, what it takes to build against it, its
# documents, and the command. `./dev package` makes and checks them.
#
# The same sources give the same bytes wherever they are built: paths are mapped away, files are dated
# by SOURCE_DATE_EPOCH, and archives list their members in order.

set(maintainer "The libtarnutil maintainers <maintainers@libtarnutil.invalid>")

# Debian wants the changes and the licence of every package, the former compressed.
function(tarnutil_package_documents package component)
  set(directory ${PROJECT_BINARY_DIR}/package/${package})
  configure_file(cmake/package/changelog.in ${directory}/changelog @ONLY)
  configure_file(cmake/package/copyright ${directory}/copyright COPYONLY)
  add_custom_command(
    OUTPUT ${directory}/changelog.gz
    COMMAND gzip --best --no-name --keep --force ${directory}/changelog
    DEPENDS ${directory}/changelog
    VERBATIM)
  add_custom_target(${package}_documents ALL DEPENDS ${directory}/changelog.gz)
  install(
    FILES ${directory}/changelog.gz ${directory}/copyright
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
    COMPONENT ${component})
endfunction()

tarnutil_package_documents(libtarnutil1 runtime)
tarnutil_package_documents(libtarnutil-dev dev)
tarnutil_package_documents(libtarnutil-doc doc)
tarnutil_package_documents(tarnutil-tools tools)
install(
  FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libtarnutil-doc
  COMPONENT doc)
install(
  DIRECTORY docs examples
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libtarnutil-doc
  USE_SOURCE_PERMISSIONS
  COMPONENT doc
  PATTERN "man" EXCLUDE
  PATTERN "tables" EXCLUDE
  PATTERN "doxygen" EXCLUDE)

# The symbols file of the shared object, made of the list that the tests keep.
file(STRINGS tests/interface/exported_names.txt exported_names)
list(TRANSFORM exported_names REPLACE "\t.*" "@LIBTARNUTIL_1.0 1.0.0")
list(JOIN exported_names "\n " exported_names)
file(WRITE ${PROJECT_BINARY_DIR}/package/symbols
     "libtarnutil.so.1 libtarnutil1 #MINVER#\n LIBTARNUTIL_1.0@LIBTARNUTIL_1.0 1.0.0\n ${exported_names}\n")

# Debian also wants its manual pages compressed.
foreach(component dev tools)
  install(CODE "file(GLOB pages \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man*/*.[0-9]\")
                if(pages)
                  execute_process(COMMAND gzip --best --no-name --force \${pages} COMMAND_ERROR_IS_FATAL ANY)
                endif()" COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "building blocks for Linux server programs")
set(CPACK_PACKAGE_NAME tarnutil)
set(CPACK_PACKAGE_CONTACT ${maintainer})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime dev doc tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libtarnutil1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_BINARY_DIR}/package/symbols ${PROJECT_SOURCE_DIR}/cmake/package/shlibs
    ${PROJECT_SOURCE_DIR}/cmake/package/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "Exceptions with stack traces, owners of mutexes, threads, files, pipes and\nchild processes, authentication tokens, certificate helpers, a bitmap over\nhuge ranges, and a catalogue of TLS cipher suites.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libtarnutil-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libtarnutil1 (= ${PROJECT_VERSION}), libssl-dev")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS libtarnutil-doc)
set(CPACK_DEBIAN_DEV_DESCRIPTION
    "Headers, the link to the shared object, what CMake and pkg-config need to\nfind it, and manual pages.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME libtarnutil-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_DESCRIPTION
    "Guides, formats, behaviours that look like mistakes and are none, and\ncomplete example programs.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME tarnutil-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libtarnutil1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
    "The tarnutil command issues and checks authentication tokens, inspects\ncertificates, explains cipher strings, and more.")

include(CPack)
