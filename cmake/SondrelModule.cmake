# Parts that need large libraries are modules, loaded on first use (see
# core/Module.h): a run that does not need them never loads the libraries.
#
#   sondrel_module(<name> SOURCES <files...> LIBRARIES <targets...> [USES_PROGRAM])
#
# builds <name>.so into <build>/lib/sondrel (installed to lib/sondrel, the
# same place relative to the program) and <name>_static, the same code as a
# static library for the tests, which hand its table in directly. A module
# that calls into the program's own code (the record, the settings) says
# USES_PROGRAM: its symbols then come from the program that loads it, which
# exports them (sondrel_export_for_modules). Every other module must be
# complete in itself.
set(SONDREL_MODULE_DIR ${CMAKE_BINARY_DIR}/lib/sondrel)

function(sondrel_module name)
  cmake_parse_arguments(M "USES_PROGRAM" "" "SOURCES;LIBRARIES" ${ARGN})
  add_library(${name}_objects OBJECT ${M_SOURCES})
  set_target_properties(${name}_objects PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
                                                   VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${name}_objects PRIVATE ${SONDREL_WARNINGS})
  target_include_directories(${name}_objects PRIVATE ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name}_objects PRIVATE ${M_LIBRARIES})
  if(M_USES_PROGRAM)
    # The headers of the program's code, without linking a second copy of it.
    target_include_directories(${name}_objects PRIVATE $<TARGET_PROPERTY:sondrel_lib,INTERFACE_INCLUDE_DIRECTORIES>)
  endif()

  add_library(${name}_static STATIC $<TARGET_OBJECTS:${name}_objects>)
  target_link_libraries(${name}_static PUBLIC ${M_LIBRARIES})

  add_library(${name} MODULE $<TARGET_OBJECTS:${name}_objects>)
  target_link_libraries(${name} PRIVATE ${M_LIBRARIES})
  set_target_properties(${name} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${SONDREL_MODULE_DIR})
  # The module's own definitions bind inside it; only its entry point is
  # exported (declared with default visibility in its source).
  target_link_options(${name} PRIVATE -Wl,-Bsymbolic)
  if(NOT M_USES_PROGRAM AND NOT SONDREL_SANITIZE AND NOT SONDREL_BUILD_FUZZ AND NOT SONDREL_COVERAGE)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  install(TARGETS ${name} LIBRARY DESTINATION lib/sondrel)
  set_property(GLOBAL APPEND PROPERTY SONDREL_MODULES ${name})
endfunction()

# A program that loads modules: it exports its own code to them and is
# rebuilt together with them.
function(sondrel_export_for_modules target)
  target_link_options(${target} PRIVATE -Wl,--dynamic-list=${CMAKE_SOURCE_DIR}/cmake/module-exports.list)
  get_property(modules GLOBAL PROPERTY SONDREL_MODULES)
  if(modules)
    add_dependencies(${target} ${modules})
  endif()
endfunction()
