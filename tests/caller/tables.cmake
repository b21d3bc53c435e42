# SPDX-License-Identifier: MIT
#
# Tests of what the library reads out of modules: their tables and trace level. The modules differ in how they were
# linked, and in when their tables are filled.

#   table_module(NAME SOURCE [LINK option ...] [FIXED])
function(table_module name source)
  cmake_parse_arguments(arg "FIXED" "" "LINK" ${ARGN})
  set(target caller_module_${name})
  add_executable(${target} ${source})
  ka_world(${target} 32)
  target_link_libraries(${target} PRIVATE kahost_32)
  target_link_options(${target} PRIVATE ${arg_LINK})
  if(arg_FIXED)
    target_compile_options(${target} PRIVATE -fno-pie)
    target_link_options(${target} PRIVATE -no-pie)
  endif()
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests/caller_modules)
  set(table_modules ${table_modules} ${target} PARENT_SCOPE)
endfunction()

table_module(stripped modules/tasks.c LINK -s)
table_module(fixed_stripped modules/tasks.c FIXED LINK -s)
table_module(sysv modules/tasks.c LINK -Wl,--hash-style=sysv)
table_module(fixed_sysv modules/tasks.c FIXED LINK -Wl,--hash-style=sysv)
table_module(built modules/built.cpp)
table_module(late modules/late.c)
table_module(level modules/level.c)
table_module(level_fixed modules/level.c FIXED)
table_module(random_tables modules/random_tables.c)
table_module(probe modules/probe.c)
table_module(guarded modules/guarded.c)
table_module(circular modules/circular.c)
table_module(misleading modules/misleading.c)

add_library(caller_module_apart_library SHARED modules/apart.c)
ka_world(caller_module_apart_library 32)
target_link_libraries(caller_module_apart_library PRIVATE kahost_32)
set_target_properties(caller_module_apart_library PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests/caller_modules)
table_module(apart modules/apart_program.c LINK -Wl,--no-as-needed)
target_link_libraries(caller_module_apart PRIVATE caller_module_apart_library)

foreach(bits IN LISTS KA_WORLDS)
  ka_test(
    caller_tables ${bits}
    SOURCES broken_files.cpp descriptors.cpp equivalence.cpp guarded.cpp hosts.cpp refusals.cpp tables.cpp trace.cpp
    LIBS kacall_static_${bits}
    LABELS caller)
  target_compile_definitions(caller_tables_${bits} PRIVATE CALLER_MODULES="${dir}" CALLER_HOST_LIBRARY="$<TARGET_FILE:kahost_32>")
  add_dependencies(caller_tables_${bits} ${table_modules} caller_module_tasks caller_module_fixed)
endforeach()
