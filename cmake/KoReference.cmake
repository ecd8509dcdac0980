# The target `reference`: HTML pages of the installed headers, in <build>/reference/html. Any warning fails it.
find_program(KO_DOXYGEN doxygen)

function(ko_add_reference target)
  get_target_property(headers ${target} HEADER_SET)
  list(SORT headers)
  list(TRANSFORM headers PREPEND "\"")
  list(TRANSFORM headers APPEND "\"")
  list(JOIN headers " \\\n                         " KO_REFERENCE_HEADERS)
  set(KO_REFERENCE_DIRECTORY ${PROJECT_BINARY_DIR}/reference)
  configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${KO_REFERENCE_DIRECTORY}/Doxyfile @ONLY)
  add_custom_target(reference
    COMMAND ${KO_DOXYGEN} ${KO_REFERENCE_DIRECTORY}/Doxyfile
    COMMENT "Reference in ${KO_REFERENCE_DIRECTORY}/html" VERBATIM)
endfunction()

if(KO_DOXYGEN AND PROJECT_IS_TOP_LEVEL)
  ko_add_reference(sys_vanta)
endif()
