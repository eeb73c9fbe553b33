# CPack: a Debian package of each install component, and an archive of the sources.
set(CPACK_PACKAGE_NAME korva_reference_api)
set(CPACK_PACKAGE_VENDOR "Korva")
set(CPACK_PACKAGE_CONTACT "Korva developers <developers@korva.example>" CACHE STRING "Maintainer of the packages")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Named after the SONAME, as every Debian library.
set(korva_deb libkorva-reference-api${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${korva_deb})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkorva-reference-api-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${korva_deb} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "The shared library.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Header, link, CMake package and pkg-config file.")
# Packages that link with the library learn what to depend on, and the linker's cache is renewed.
set(korva_control ${CMAKE_CURRENT_BINARY_DIR}/debian)
file(WRITE ${korva_control}/triggers "activate-noawait ldconfig\n")
file(WRITE ${korva_control}/shlibs "libkorva_reference_api ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR} ${korva_deb}\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${korva_control}/triggers ${korva_control}/shlibs)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/cmake/KorvaDebianDocs.cmake)

set(CPACK_SOURCE_GENERATOR TXZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME korva_reference_api-${PROJECT_VERSION})
string(REGEX REPLACE "([][+.*()^$?|])" "\\\\\\1" korva_source "${CMAKE_CURRENT_SOURCE_DIR}")
set(CPACK_SOURCE_IGNORE_FILES
  "^${korva_source}/(\\.git|build[^/]*|results|\\.?venv|python/_skbuild|python/dist)(/|$)"
  "/__pycache__/" "\\.egg-info/" "/\\.pytest_cache/")
include(CPack)
