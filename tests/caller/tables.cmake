# SPDX-License-Identifier: MIT
#
# Tests of what the library reads out of modules: their tables and trace level. The modules differ in how they were
# linked, and in when their tables are filled.


#   table_module(NAME ...)   caller_module_NAME, see modules.cmake
macro(table_module name)
  caller_module(caller_module_${name} ${ARGN})
  list(APPEND table_modules caller_module_${name})
endmacro()

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
table_module(apart modules/apart_program.c LINK -Wl,--no-as-needed)
foreach(bits IN LISTS KA_WORLDS)
  set(library caller_module_apart_library_${bits})
  add_library(${library} SHARED modules/apart.c)
  ka_world(${library} ${bits})
  target_link_libraries(${library} PRIVATE kahost_${bits})
  set_target_properties(${library} PROPERTIES OUTPUT_NAME caller_module_apart_library LIBRARY_OUTPUT_DIRECTORY ${CALLER_MODULE_DIR}/${bits})
  target_link_libraries(caller_module_apart_${bits} PRIVATE ${library})
endforeach()

foreach(bits IN LISTS KA_WORLDS)
  ka_test(
    caller_tables ${bits} CALLS_MODULES
    SOURCES broken_files.cpp descriptors.cpp equivalence.cpp guarded.cpp hosts.cpp refusals.cpp tables.cpp trace.cpp
    LIBS kacall_static_${bits}
    LABELS caller)
  target_compile_definitions(caller_tables_${bits} PRIVATE CALLER_BUILD="${CMAKE_BINARY_DIR}")
  needs_modules(caller_tables_${bits} ${table_modules} caller_module_tasks caller_module_fixed)
endforeach()
