# Run by CPack before it packs: gives each Debian package the documents that every one has.
if(NOT CPACK_GENERATOR STREQUAL DEB)
  return()
endif()
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component RUNTIME DEVELOPMENT)
  set(package ${CPACK_DEBIAN_${component}_PACKAGE_NAME})
  string(TOLOWER ${component} folder)
  set(folder ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${folder}/usr/share/doc)
  if(EXISTS ${folder}/${CPACK_PACKAGE_NAME})
    file(RENAME ${folder}/${CPACK_PACKAGE_NAME} ${folder}/${package})
  endif()
  file(WRITE ${folder}/${package}/copyright
    "Korva reference API\n\nCopyright (C) 2026 Korva developers. All rights reserved: this package grants no licence.\n")
  file(WRITE ${folder}/${package}/changelog.Debian
    "korva-reference-api (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium\n\n"
    "  * Release ${CPACK_PACKAGE_VERSION}; CHANGELOG.md in the development package tells more.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  execute_process(COMMAND gzip -9nf ${folder}/${package}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
endforeach()
