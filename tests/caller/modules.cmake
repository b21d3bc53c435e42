# SPDX-License-Identifier: MIT
#
# Modules that tests of the caller's side call, for each word size; include() it from any folder of tests.
#
#   caller_module(NAME SOURCE ... [FIXED] [DEFINES ...] [LINK option ...])   targets NAME_BITS; FIXED: at an address of
#                                                                            its own
#   needs_modules(TARGET NAME ...)                                           builds TARGET after them, and tells it in
#                                                                            CALLER_MODULES in which folder they are
include_guard(GLOBAL)
set(CALLER_MODULE_DIR ${PROJECT_BINARY_DIR}/tests/caller_modules CACHE INTERNAL "")

function(caller_module name)
  cmake_parse_arguments(arg "FIXED" "" "DEFINES;LINK" ${ARGN})
  foreach(bits IN LISTS KA_WORLDS)
    set(target ${name}_${bits})
    add_executable(${target} ${arg_UNPARSED_ARGUMENTS})
    ka_world(${target} ${bits})
    ka_traced_module(${target})
    target_link_libraries(${target} PRIVATE kahost_${bits})
    target_compile_definitions(${target} PRIVATE ${arg_DEFINES})
    target_link_options(${target} PRIVATE ${arg_LINK})
    if(arg_FIXED)
      target_compile_options(${target} PRIVATE -fno-pie)
      target_link_options(${target} PRIVATE -no-pie)
    endif()
    set_target_properties(${target} PROPERTIES OUTPUT_NAME ${name} RUNTIME_OUTPUT_DIRECTORY ${CALLER_MODULE_DIR}/${bits})
  endforeach()
endfunction()

function(needs_modules target)
  foreach(bits IN LISTS KA_WORLDS)
    list(TRANSFORM ARGN APPEND _${bits} OUTPUT_VARIABLE targets)
    add_dependencies(${target} ${targets})
  endforeach()
  target_compile_definitions(${target} PRIVATE CALLER_MODULES="${CALLER_MODULE_DIR}")
endfunction()
