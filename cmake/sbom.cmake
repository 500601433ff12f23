# SPDX-License-Identifier: Apache-2.0
# Bills of materials in CycloneDX's form: what a binary is made of and stands on, in the versions that it
# was built with. The platform's C and C++ runtimes are not listed.

# tarnutil_bill_of_materials(<name> <file> <component>)
# Fills in <name>.cdx.json.in and installs it as <file>. The same contents have the same number.
function(tarnutil_bill_of_materials name file component)
  file(READ ${PROJECT_SOURCE_DIR}/cmake/${name}.cdx.json.in template)
  string(CONFIGURE "${template}" contents @ONLY)
  set(namespace_url 6ba7b811-9dad-11d1-80b4-00c04fd430c8)
  string(UUID bom_uuid NAMESPACE ${namespace_url} NAME "${contents}" TYPE SHA1)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.cdx.json.in ${PROJECT_BINARY_DIR}/${file} @ONLY)
  install(
    FILES ${PROJECT_BINARY_DIR}/${file}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/tarnutil
    COMPONENT ${component})
endfunction()
