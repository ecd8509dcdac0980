# Debian packages: the library, what it takes to build with it, and the tools. Build a tree that was configured for
# /usr (preset "package") and run cpack in it.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME sys-vanta)
set(CPACK_PACKAGE_VENDOR "The sys_vanta developers")
set(CPACK_PACKAGE_CONTACT "The sys_vanta developers <sys_vanta@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL runtime dev)
if(KO_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
set(ko_runtime_package libsys-vanta${PROJECT_VERSION_MAJOR})
set(ko_same_version "(= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${ko_runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}\n This package holds the shared library.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libsys-vanta-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${ko_runtime_package} ${ko_same_version}")
set(CPACK_DEBIAN_DEV_DESCRIPTION
  "${PROJECT_DESCRIPTION}\n This package holds headers, CMake package, pkg-config file and printers for gdb.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME sys-vanta-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
  "${PROJECT_DESCRIPTION}\n This package holds the log viewer and the symboliser of backtrace files.")

include(CPack)
