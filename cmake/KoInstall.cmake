# Library, headers, CMake package and pkg-config file.
include(CMakePackageConfigHelpers)

function(ko_install_library target)
  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/sys_vanta)
  install(TARGETS ${target} EXPORT sys_vanta-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sys_vanta)
  install(EXPORT sys_vanta-targets NAMESPACE sys_vanta:: DESTINATION ${package_dir})

  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/sys_vanta-config.cmake.in
    ${PROJECT_BINARY_DIR}/sys_vanta-config.cmake INSTALL_DESTINATION ${package_dir})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/sys_vanta-config-version.cmake
    COMPATIBILITY SameMajorVersion)
  # The package finds its prefix from where it lies, so that an installed tree can be moved.
  file(RELATIVE_PATH KO_PC_PREFIX
    /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/sys_vanta.pc.in
    ${PROJECT_BINARY_DIR}/sys_vanta.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/sys_vanta-config.cmake
    ${PROJECT_BINARY_DIR}/sys_vanta-config-version.cmake DESTINATION ${package_dir})
  install(FILES ${PROJECT_BINARY_DIR}/sys_vanta.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
