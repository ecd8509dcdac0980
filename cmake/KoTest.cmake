# GoogleTest: Debian's library where it fits, built from Debian's sources where the
# compiler, the processor or the sanitizers differ.
if(CMAKE_CROSSCOMPILING OR KO_SANITIZE)
  set(INSTALL_GTEST OFF)
  set(BUILD_GMOCK ON)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  foreach(library gtest gtest_main gmock gmock_main)
    if(KO_SANITIZE)
      target_compile_options(${library} PRIVATE -fsanitize=${KO_SANITIZE})
    endif()
  endforeach()
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)

# ko_add_test(<name> SOURCES ... [LIBRARIES ...]): one executable, one ctest entry per test.
function(ko_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ko_test_support sys_vanta GTest::gmock ${arg_LIBRARIES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  ko_configure_target(${name})
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 120)
endfunction()
