# Library, headers, debugger printers, CMake package and pkg-config file, in three components: what programs need to
# run (runtime), what it takes to build them (dev), and the tools.
include(CMakePackageConfigHelpers)

function(ko_install_library target)
  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/sys_vanta)
  install(TARGETS ${target} EXPORT sys_vanta-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sys_vanta COMPONENT dev)
  install(EXPORT sys_vanta-targets NAMESPACE sys_vanta:: DESTINATION ${package_dir} COMPONENT dev)

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
    ${PROJECT_BINARY_DIR}/sys_vanta-config-version.cmake DESTINATION ${package_dir} COMPONENT dev)
  install(FILES ${PROJECT_BINARY_DIR}/sys_vanta.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
  ko_install_printers(${target})
endfunction()

# gdb looks for the printers of a library beside it, and for those of the system's libraries in a tree of their own.
function(ko_install_printers target)
  set(printers $<TARGET_FILE_NAME:${target}>-gdb.py)
  file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/${printers} INPUT ${PROJECT_SOURCE_DIR}/tools/gdb/sys_vanta-gdb.py)
  install(CODE "
    set(directory \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}\")
    if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
      set(directory \"/usr/share/gdb/auto-load/usr/${CMAKE_INSTALL_LIBDIR}\")
    endif()
    file(INSTALL \"${PROJECT_BINARY_DIR}/${printers}\" DESTINATION \"\${directory}\")"
    COMPONENT dev)
endfunction()
