# Two components: `runtime` is the shared library, `development` the rest: link, header, static library, CMake package,
# pkg-config file and documents. All of it is relocatable.
if(NOT KORVA_INSTALL)
  # An installed host needs the library, and finds it from the folder of programs.
  if(korva_library_type STREQUAL SHARED)
    install(TARGETS korva_reference_api LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_SKIP)
    cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR
      BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR} OUTPUT_VARIABLE korva_bin_to_lib)
    if(NOT CMAKE_SKIP_RPATH AND NOT CMAKE_SKIP_INSTALL_RPATH)
      # In a file for the linker, because generators write $ differently.
      file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/host_rpath "-rpath=$ORIGIN/${korva_bin_to_lib}\n")
      target_link_options(korva_reference_api INTERFACE LINKER:@${CMAKE_CURRENT_BINARY_DIR}/host_rpath)
    endif()
  endif()
  return()
endif()

include(CMakePackageConfigHelpers)

set(korva_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/korva_reference_api)

set_target_properties(korva_reference_api PROPERTIES EXPORT_NAME reference_api)
install(TARGETS korva_reference_api EXPORT korva_reference_api_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
install(FILES include/korva_reference_api.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(EXPORT korva_reference_api_targets NAMESPACE korva:: DESTINATION ${korva_cmake_dir})

configure_package_config_file(cmake/korva_reference_api-config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/korva_reference_api-config.cmake
  INSTALL_DESTINATION ${korva_cmake_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/korva_reference_api-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/korva_reference_api-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/korva_reference_api-config-version.cmake
  DESTINATION ${korva_cmake_dir})

# pkg-config finds the prefix from where its own file lies, so that a moved installation still works.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE korva_pc_to_prefix)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
  OUTPUT_VARIABLE korva_pc_libdir)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_INCLUDEDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
  OUTPUT_VARIABLE korva_pc_includedir)
configure_file(cmake/korva_reference_api.pc.in ${CMAKE_CURRENT_BINARY_DIR}/korva_reference_api.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/korva_reference_api.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(PROJECT_IS_TOP_LEVEL)
  include(cmake/KorvaPackage.cmake)
endif()
