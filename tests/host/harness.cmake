# SPDX-License-Identifier: MIT
#
# For tests that talk to real host processes; include() it from any folder of tests. Tests include
# "host/host_process.h".
#
#   ka_module(NAME SOURCES ... [STATIC])            a function module, found by its NAME; STATIC: the host's objects are
#                                                   linked in, so that the module can set the host's own variables
#   ka_host_test(NAME SOURCES ... [MODULES ...])    a test program for each word size, built after those modules

# Before the guard: a variable is seen only in the folder that includes this, the rest everywhere.
set(KA_MODULE_DIR ${CMAKE_BINARY_DIR}/tests/modules)
include_guard(GLOBAL)

foreach(bits IN LISTS KA_WORLDS)
  set(dir ${CMAKE_CURRENT_LIST_DIR})
  add_library(host_harness_${bits} STATIC ${dir}/block.cpp ${dir}/arguments.cpp ${dir}/reals.cpp ${dir}/start.cpp
                                          ${dir}/process_state.cpp ${dir}/system_calls.cpp ${dir}/host_process.cpp
                                          ${dir}/probe.cpp)
  ka_test_code(host_harness_${bits} ${bits})
  target_include_directories(host_harness_${bits} PUBLIC ${CMAKE_SOURCE_DIR}/tests ${CMAKE_SOURCE_DIR}/dll/include)
  target_compile_definitions(host_harness_${bits} PUBLIC KA_MODULE_DIR="${KA_MODULE_DIR}")
  target_link_libraries(host_harness_${bits} PUBLIC kadecimal_static_${bits})
endforeach()

function(ka_module name)
  cmake_parse_arguments(arg "STATIC" "" "SOURCES" ${ARGN})
  add_executable(module_${name} ${arg_SOURCES})
  ka_world(module_${name} 32)
  if(arg_STATIC)
    foreach(part IN ITEMS host real decimal)
      target_sources(module_${name} PRIVATE $<TARGET_OBJECTS:${part}_32>)
      target_include_directories(module_${name}
                                 PRIVATE $<TARGET_PROPERTY:${part}_32,INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()
  else()
    target_link_libraries(module_${name} PRIVATE kahost_32)
  endif()
  set_target_properties(module_${name} PROPERTIES OUTPUT_NAME ${name} RUNTIME_OUTPUT_DIRECTORY ${KA_MODULE_DIR})
endfunction()

function(ka_host_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;MODULES;LABELS" ${ARGN})
  foreach(bits IN LISTS KA_WORLDS)
    ka_test(${name} ${bits} SOURCES ${arg_SOURCES} LIBS host_harness_${bits} LABELS ${arg_LABELS})
    foreach(module IN LISTS arg_MODULES)
      add_dependencies(${name}_${bits} module_${module})
    endforeach()
  endforeach()
endfunction()
