# SPDX-License-Identifier: MIT
#
# For tests that talk to real host processes; include() it from any folder of tests. Tests include
# "host/host_process.h".
#
#   ka_module(NAME SOURCES ... [STATIC] [INCLUDES ...])   a function module, found by its NAME; STATIC: the host's objects
#                                                         are linked in, so that the module can set the host's own
#                                                         variables. Targets module_NAME_BITS
#   ka_host_test(NAME SOURCES ... [MODULES ...] [BY_SUITE])   a test program for each word size, built after those modules

# Before the guard: a variable is seen only in the folder that includes this, the rest everywhere.
set(KA_MODULE_DIR ${PROJECT_BINARY_DIR}/tests/modules)
include_guard(GLOBAL)

foreach(bits IN LISTS KA_WORLDS)
  set(dir ${CMAKE_CURRENT_LIST_DIR})
  add_library(host_harness_${bits} STATIC ${dir}/block.cpp ${dir}/arguments.cpp ${dir}/reals.cpp ${dir}/start.cpp
                                          ${dir}/process_state.cpp ${dir}/system_calls.cpp ${dir}/host_process.cpp
                                          ${dir}/probe.cpp)
  ka_test_code(host_harness_${bits} ${bits})
  ka_prelude(host_harness_${bits} ${bits})
  target_include_directories(host_harness_${bits} PUBLIC ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/dll/include)
  target_compile_definitions(host_harness_${bits} PUBLIC KA_MODULE_DIR="${KA_MODULE_DIR}")
  target_link_libraries(host_harness_${bits} PUBLIC kadecimal_static_${bits})
endforeach()

function(ka_module name)
  cmake_parse_arguments(arg "STATIC" "" "SOURCES;INCLUDES;DEFINES" ${ARGN})
  foreach(bits IN LISTS KA_WORLDS)
    set(target module_${name}_${bits})
    add_executable(${target} ${arg_SOURCES})
    ka_world(${target} ${bits})
    target_include_directories(${target} PRIVATE ${arg_INCLUDES})
    target_compile_definitions(${target} PRIVATE ${arg_DEFINES})
    if(arg_STATIC)
      foreach(part IN ITEMS host real decimal)
        target_sources(${target} PRIVATE $<TARGET_OBJECTS:${part}_${bits}>)
        target_include_directories(${target} PRIVATE $<TARGET_PROPERTY:${part}_${bits},INTERFACE_INCLUDE_DIRECTORIES>)
      endforeach()
    else()
      target_link_libraries(${target} PRIVATE kahost_${bits})
    endif()
    set_target_properties(${target} PROPERTIES OUTPUT_NAME ${name} RUNTIME_OUTPUT_DIRECTORY ${KA_MODULE_DIR}/${bits})
  endforeach()
endfunction()

function(ka_host_test name)
  cmake_parse_arguments(arg "BY_SUITE" "" "SOURCES;MODULES;LABELS" ${ARGN})
  set(by_suite "")
  if(arg_BY_SUITE)
    set(by_suite BY_SUITE)
  endif()
  foreach(bits IN LISTS KA_WORLDS)
    ka_test(${name} ${bits} CALLS_MODULES ${by_suite} SOURCES ${arg_SOURCES} LIBS host_harness_${bits} LABELS ${arg_LABELS})
    foreach(modules IN LISTS KA_WORLDS)
      list(TRANSFORM arg_MODULES REPLACE "(.+)" "module_\\1_${modules}" OUTPUT_VARIABLE targets)
      add_dependencies(${name}_${bits} ${targets})
    endforeach()
  endforeach()
endfunction()
