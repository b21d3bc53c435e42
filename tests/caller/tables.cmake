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
table_module(packed modules/tasks.c LINK -Wl,-z,pack-relative-relocs)
table_module(documented modules/documented.c)
table_module(documented_stripped modules/documented.c LINK -s)
table_module(documented_fixed modules/documented.c FIXED LINK -s)
table_module(documented_packed modules/documented.c LINK -Wl,-z,pack-relative-relocs)
table_module(apart modules/apart_program.c LINK -Wl,--no-as-needed)
table_module(borrowed modules/borrowed.c)
table_module(borrowed_guarded modules/borrowed.c DEFINES GUARDED)

# Of these, a part is in a library.
foreach(bits IN LISTS KA_WORLDS)
  foreach(name apart borrowed)
    set(library caller_module_${name}_library_${bits})
    add_library(${library} SHARED modules/${name}_library.c)
    ka_world(${library} ${bits})
    target_link_libraries(${library} PRIVATE kahost_${bits})
    set_target_properties(${library} PROPERTIES OUTPUT_NAME caller_module_${name}_library LIBRARY_OUTPUT_DIRECTORY ${CALLER_MODULE_DIR}/${bits})
    target_link_libraries(caller_module_${name}_${bits} PRIVATE ${library})
  endforeach()
  target_link_libraries(caller_module_borrowed_guarded_${bits} PRIVATE caller_module_borrowed_library_${bits})
endforeach()

# A shared library that can be run, with the compiler's own beginning of a program.
table_module(named modules/named.c LINK -shared -Wl,-e,_start -Wl,--no-as-needed)
foreach(bits IN LISTS KA_WORLDS)
  get_target_property(flags ka_world_${bits} INTERFACE_LINK_OPTIONS)
  list(FILTER flags INCLUDE REGEX "^-m[0-9]+$")
  execute_process(COMMAND ${CMAKE_C_COMPILER} ${flags} -print-file-name=Scrt1.o OUTPUT_VARIABLE start
                  OUTPUT_STRIP_TRAILING_WHITESPACE)
  target_compile_options(caller_module_named_${bits} PRIVATE -fPIC)
  target_link_libraries(caller_module_named_${bits} PRIVATE ${start})
endforeach()

# All libraries in the program; the sanitizers' are there as shared ones only.
if(NOT KA_SANITIZE)
  foreach(bits IN LISTS KA_WORLDS)
    set(target caller_module_static_pie_${bits})
    add_executable(${target} modules/tasks.c)
    ka_world(${target} ${bits})
    foreach(part IN ITEMS host real decimal)
      target_sources(${target} PRIVATE $<TARGET_OBJECTS:${part}_${bits}>)
      target_include_directories(${target} PRIVATE $<TARGET_PROPERTY:${part}_${bits},INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()
    target_link_options(${target} PRIVATE -static-pie)
    set_target_properties(${target} PROPERTIES OUTPUT_NAME caller_module_static_pie RUNTIME_OUTPUT_DIRECTORY ${CALLER_MODULE_DIR}/${bits}
                                               LINKER_LANGUAGE C)
  endforeach()
  list(APPEND table_modules caller_module_static_pie)
  set(static_pie static_pie.cpp)
endif()

set_source_files_properties(relocations.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
foreach(bits IN LISTS KA_WORLDS)
  ka_test(
    caller_tables ${bits} CALLS_MODULES BY_SUITE
    SOURCES broken_files.cpp descriptors.cpp docs.cpp elf_program.cpp equivalence.cpp guarded.cpp hosts.cpp refusals.cpp relocations.cpp tables.cpp trace.cpp ${static_pie}
    LIBS kacall_static_${bits}
    LABELS caller)
  target_compile_definitions(caller_tables_${bits} PRIVATE CALLER_BUILD="${PROJECT_BINARY_DIR}")
  needs_modules(caller_tables_${bits} ${table_modules} caller_module_tasks caller_module_fixed)
endforeach()
