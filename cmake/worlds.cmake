# SPDX-License-Identifier: MIT
#
# One configure builds the programs of every word size that the compiler makes here, each in a world of its own: those
# of the machine, and where that has 64 bits and is of the x86 family, 32-bit ones too. A caller and a module of either
# world work together. Every target is named NAME_BITS, and carries the options of its world.
#
#   KA_32BIT        ON: 32-bit programs are asked for, and an error where the compiler makes none; OFF: none;
#                   AUTO, the default: where the compiler makes them
#   KA_WORLDS       the word sizes that are built, the machine's own last
#   KA_OWN_WORLD    the machine's own
#   KA_FLAGS_32     options of the compiler for 32-bit programs, on any machine that makes them
#
#   ka_objects(NAME BITS SOURCES ... [INCLUDES ...] [NEEDS NAME ...])   sources compiled once, for archives and libraries
#   ka_archive(NAME BITS OBJECTS NAME ...)                              lib<NAME>.a
#   ka_archive_of_one(NAME BITS OBJECTS NAME ... [WITHOUT FILES] [VERSION_SCRIPT F] [REPLACEABLE S ...])
#                                                                       lib<NAME>.a, one object whose hidden names are its
#                                                                       own, and what the script hides; FILES: a regular
#                                                                       expression
#   ka_shared(NAME BITS OBJECTS NAME ... SOVERSION N VERSION_SCRIPT F)  lib<NAME>.so
#   ka_world(TARGET BITS)                                               gives any other target the options of a world
#
# Results: build/lib (32-bit), build/lib64 (64-bit), build/bin.

set(KA_32BIT AUTO CACHE STRING "Build for 32 bits, too: ON, OFF, or AUTO, where the compiler does")
set_property(CACHE KA_32BIT PROPERTY STRINGS AUTO ON OFF)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

math(EXPR KA_OWN_WORLD "8 * ${CMAKE_SIZEOF_VOID_P}")
set(KA_WORLDS ${KA_OWN_WORLD})

# Debian's g++-multilib leads -m32 to the kernel's headers, <asm/...>. It conflicts with cross compilers; beside them,
# with the compiler's own g++-12-multilib only, they are found where the machine's own are.
set(KA_KERNEL_HEADERS "")
if(KA_OWN_WORLD EQUAL 64 AND NOT KA_32BIT STREQUAL "OFF")
  # Asked at every configuration, since packages come and go: in which way, if any, is a 32-bit program made?
  file(CONFIGURE OUTPUT narrow.cpp CONTENT "#include <asm/errno.h>\n#include <vector>\nint main() { return 0; }\n")
  set(narrow_compiler "")
  foreach(headers IN ITEMS "" "-idirafter;/usr/include/${CMAKE_LIBRARY_ARCHITECTURE}")
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -m32 ${headers} ${CMAKE_CURRENT_BINARY_DIR}/narrow.cpp
                            -o ${CMAKE_CURRENT_BINARY_DIR}/narrow
                    RESULT_VARIABLE refused OUTPUT_QUIET ERROR_VARIABLE narrow_errors)
    if(NOT refused)
      set(KA_KERNEL_HEADERS ${headers})
      set(KA_WORLDS 32 64)
      break()
    endif()
  endforeach()
  if(KA_WORLDS STREQUAL "64" AND KA_32BIT STREQUAL "ON")
    message(FATAL_ERROR "KA_32BIT is ON, and the compiler makes no 32-bit programs; on Debian, g++-multilib is missing."
                        " KA_32BIT=OFF builds without them.\n${narrow_errors}")
  endif()
  if(EXISTS /usr/include/asm/errno.h) # which a cross compiler can take away later
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS /usr/include/asm/errno.h)
  endif()
endif()

add_library(ka_world_32 INTERFACE)
add_library(ka_world_64 INTERFACE)
if(KA_OWN_WORLD EQUAL 64)
  target_compile_options(ka_world_32 INTERFACE -m32 ${KA_KERNEL_HEADERS})
  target_link_options(ka_world_32 INTERFACE -m32)
endif()
# Doubles are computed in SSE2, so that no result depends on the extra precision of the x87 registers.
set(KA_FLAGS_32 "")
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
  set(KA_FLAGS_32 -msse2 -mfpmath=sse)
endif()
target_compile_options(ka_world_32 INTERFACE ${KA_FLAGS_32})

add_library(ka_options INTERFACE)
target_link_libraries(ka_world_32 INTERFACE ka_options)
target_link_libraries(ka_world_64 INTERFACE ka_options)
target_compile_options(
  ka_options
  INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wcast-align$<$<CXX_COMPILER_ID:GNU>:=strict> -Wformat=2 -Wundef -Wvla
            $<$<BOOL:${KA_WERROR}>:-Werror>
            # The build is reproducible in any directory; messages name files from the project's root.
            -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
            # Nor does a number depend on whether the processor multiplies and adds in one step.
            -ffp-contract=off)
if(KA_SANITIZE)
  target_compile_options(ka_options INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
                                             -fno-omit-frame-pointer)
  target_link_options(ka_options INTERFACE -fsanitize=address,undefined)
endif()
if(KA_COVERAGE)
  target_compile_options(ka_options INTERFACE --coverage -O0)
  target_compile_definitions(ka_options INTERFACE KA_COVERAGE)
  target_link_options(ka_options INTERFACE --coverage)
endif()

# For modules that a caller may trace.
function(ka_traced_module)
  if(KA_SANITIZE)
    foreach(target IN LISTS ARGN)
      target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/cmake/traced_module.c)
    endforeach()
  endif()
endfunction()

function(ka_world target bits)
  target_link_libraries(${target} PRIVATE ka_world_${bits})
endfunction()

# Rules of the libraries: C++20 without a C++ runtime.
add_library(ka_freestanding INTERFACE)
target_compile_options(ka_freestanding INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions;-fno-rtti;-fno-threadsafe-statics>
                                                # whose names no archive could keep to itself
                                                $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique>)
if(KA_FUZZ) # the fuzzer is guided by the libraries' coverage, not by that of the tests
  target_compile_options(ka_freestanding INTERFACE -fsanitize=fuzzer-no-link)
endif()

function(ka_lib_dir out bits)
  if(bits EQUAL 64)
    set(${out} ${PROJECT_BINARY_DIR}/lib64 PARENT_SCOPE)
  else()
    set(${out} ${PROJECT_BINARY_DIR}/lib PARENT_SCOPE)
  endif()
endfunction()

function(ka_objects name bits)
  cmake_parse_arguments(arg "" "" "SOURCES;INCLUDES;NEEDS" ${ARGN})
  set(target ${name}_${bits})
  add_library(${target} OBJECT ${arg_SOURCES})
  # Whatever a project that includes this one asks for: sources repeat names, and archives are made of plain objects.
  set_target_properties(${target} PROPERTIES UNITY_BUILD OFF INTERPROCEDURAL_OPTIMIZATION OFF)
  ka_world(${target} ${bits})
  target_link_libraries(${target} PRIVATE ka_freestanding)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}) # wire/
  foreach(dir IN LISTS arg_INCLUDES)
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/${dir})
  endforeach()
  foreach(need IN LISTS arg_NEEDS)
    target_include_directories(${target} PUBLIC $<TARGET_PROPERTY:${need}_${bits},INTERFACE_INCLUDE_DIRECTORIES>)
  endforeach()
endfunction()

# The objects of a library and the directories of its public headers.
function(ka_gather target bits)
  foreach(name IN LISTS ARGN)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${name}_${bits}>)
    target_include_directories(${target} PUBLIC $<TARGET_PROPERTY:${name}_${bits},INTERFACE_INCLUDE_DIRECTORIES>)
  endforeach()
  ka_lib_dir(dir ${bits})
  # LINKER_LANGUAGE C: nothing of ours needs the C++ runtime, so none is linked.
  set_target_properties(
    ${target} PROPERTIES LINKER_LANGUAGE C ARCHIVE_OUTPUT_DIRECTORY ${dir} LIBRARY_OUTPUT_DIRECTORY ${dir})
endfunction()

function(ka_archive name bits)
  cmake_parse_arguments(arg "" "" "OBJECTS" ${ARGN})
  set(target ${name}_static_${bits})
  add_library(${target} STATIC)
  ka_gather(${target} ${bits} ${arg_OBJECTS})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${name})
endfunction()

# Who links with it takes all or nothing, and finds the names of the interface alone. A program that defines one of these
# is refused by the linker, but for the REPLACEABLE ones and those that are weak: there the program's is taken.
function(ka_archive_of_one name bits)
  cmake_parse_arguments(arg "" "WITHOUT;VERSION_SCRIPT" "OBJECTS;REPLACEABLE" ${ARGN})
  if(NOT arg_WITHOUT)
    set(arg_WITHOUT ^$)
  endif()
  set(target ${name}_static_${bits})
  set(parts "")
  foreach(part IN LISTS arg_OBJECTS)
    list(APPEND parts "$<FILTER:$<TARGET_OBJECTS:${part}_${bits}>,EXCLUDE,${arg_WITHOUT}>")
  endforeach()
  set(narrow "")
  if(NOT bits EQUAL KA_OWN_WORLD)
    set(narrow -m${bits})
  endif()
  set(object ${CMAKE_CURRENT_BINARY_DIR}/${target}.o)
  list(TRANSFORM arg_REPLACEABLE PREPEND --weaken-symbol=)
  set(interface "")
  if(arg_VERSION_SCRIPT)
    file(READ ${arg_VERSION_SCRIPT} script)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${arg_VERSION_SCRIPT})
    string(REGEX REPLACE ".*global:(.*)local:.*" "\\1" interface "${script}")
    string(REPLACE ";" " " interface "${interface}")
    string(REGEX MATCHALL "[a-zA-Z0-9_]+" interface "${interface}")
    list(TRANSFORM interface PREPEND --keep-global-symbol=)
  endif()
  add_custom_command(
    OUTPUT ${object}
    COMMAND ${CMAKE_C_COMPILER} ${narrow} -r -nostdlib -Wl,--force-group-allocation -o ${object} ${parts}
    COMMAND ${CMAKE_OBJCOPY} --localize-hidden ${interface} ${arg_REPLACEABLE} ${object}
    DEPENDS ${parts}
    COMMAND_EXPAND_LISTS VERBATIM)
  add_library(${target} STATIC ${object})
  set_source_files_properties(${object} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
  foreach(part IN LISTS arg_OBJECTS)
    target_include_directories(${target} PUBLIC $<TARGET_PROPERTY:${part}_${bits},INTERFACE_INCLUDE_DIRECTORIES>)
  endforeach()
  ka_lib_dir(dir ${bits})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${name} LINKER_LANGUAGE C ARCHIVE_OUTPUT_DIRECTORY ${dir})
endfunction()

function(ka_shared name bits)
  cmake_parse_arguments(arg "" "SOVERSION;VERSION_SCRIPT" "OBJECTS" ${ARGN})
  set(target ${name}_${bits})
  set(script ${PROJECT_SOURCE_DIR}/${arg_VERSION_SCRIPT})
  add_library(${target} SHARED)
  ka_world(${target} ${bits})
  ka_gather(${target} ${bits} ${arg_OBJECTS})
  target_link_options(${target} PRIVATE -Wl,--version-script=${script})
  set_target_properties(
    ${target} PROPERTIES OUTPUT_NAME ${name} VERSION ${PROJECT_VERSION} SOVERSION ${arg_SOVERSION}
                         LINK_DEPENDS ${script})
endfunction()
