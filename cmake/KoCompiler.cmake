# Warnings, visibility and sanitizers of the project's own targets.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-fcheck-new KO_HAS_CHECK_NEW)

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(KO_CCACHE ccache)
if(KO_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${KO_CCACHE}")
endif()

# What every target of ours is compiled with.
function(ko_configure_target target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor
    -Wold-style-cast -Wundef -Wformat=2 -Werror=format-security
    $<$<BOOL:${KO_WERROR}>:-Werror>
    $<$<BOOL:${KO_HAS_CHECK_NEW}>:-fcheck-new>
    -funwind-tables)
  # 64-bit file offsets and times on every target.
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
  if(KO_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${KO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${KO_SANITIZE})
  endif()
endfunction()

# What only the shared library is built with: nothing is exported that is not marked,
# and its calls to its own functions are bound at link time.
function(ko_configure_library target)
  set_target_properties(${target} PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  target_link_options(${target} PRIVATE -Wl,-Bsymbolic-functions -Wl,-z,relro,-z,now)
  if(NOT KO_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()
endfunction()

# Adds sources and public headers of one directory to the library.
function(ko_library_sources)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "" "SOURCES;HEADERS")
  target_sources(sys_vanta PRIVATE ${arg_SOURCES})
  target_sources(sys_vanta PUBLIC FILE_SET HEADERS
    BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${arg_HEADERS})
endfunction()
