# SPDX-License-Identifier: MIT
#
#   ka_add_module(NAME [BITS 32|64] [STATIC] SOURCE ...)
#       a function module, for the project's own word size unless BITS says otherwise: in a project of 64-bit programs,
#       BITS 32 is a 32-bit module. STATIC: the call host is linked in, and the module is one file. It is an ordinary
#       executable target, for target_link_libraries and all else.
#   ka_add_module_test(NAME MODULE MODULE-TARGET SOURCE ...)
#       a unit test: a program with a main of its own, with the module's objects, libraries, options of the linker and word
#       size, and a test of ctest
include_guard(GLOBAL)
include("${CMAKE_CURRENT_LIST_DIR}/KaWordSize.cmake")

function(ka_add_module name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "STATIC" "BITS" "")
  math(EXPR own "8 * ${CMAKE_SIZEOF_VOID_P}")
  if(NOT DEFINED arg_BITS)
    set(arg_BITS ${own})
  endif()
  if(NOT arg_BITS MATCHES "^(32|64)$")
    message(FATAL_ERROR "ka_add_module: ${name}: BITS is ${arg_BITS}; it must be 32 or 64")
  endif()
  if(arg_BITS GREATER own)
    message(FATAL_ERROR "ka_add_module: ${name}: BITS is 64 in a project of 32-bit programs")
  endif()
  set(host Host)
  if(arg_STATIC)
    string(APPEND host Static)
  endif()
  _ka_add_program(ka_add_module ${name} ${arg_BITS} ${host} "call host of ${arg_BITS}-bit modules" ${arg_UNPARSED_ARGUMENTS})
endfunction()

function(ka_add_module_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "BITS;MODULE" "")
  if(NOT TARGET "${arg_MODULE}")
    message(FATAL_ERROR "ka_add_module_test: ${name}: MODULE is \"${arg_MODULE}\"; it must be a target of ka_add_module")
  endif()
  get_target_property(bits ${arg_MODULE} KA_BITS)
  if(NOT bits)
    message(FATAL_ERROR "ka_add_module_test: ${name}: ${arg_MODULE} is not a target of ka_add_module")
  endif()
  if(DEFINED arg_BITS AND NOT arg_BITS STREQUAL bits)
    message(FATAL_ERROR "ka_add_module_test: ${name}: BITS is ${arg_BITS}, and the module ${arg_MODULE} has ${bits}")
  endif()
  _ka_add_program(ka_add_module_test ${name} ${bits} HostTest "library of ${bits}-bit module tests"
                  ${arg_UNPARSED_ARGUMENTS} $<TARGET_OBJECTS:${arg_MODULE}>)
  set_property(TARGET ${name} APPEND PROPERTY LINK_LIBRARIES
               "$<FILTER:$<TARGET_PROPERTY:${arg_MODULE},LINK_LIBRARIES>,EXCLUDE,^Ka::Host>")
  # -fsanitize=address, for one
  foreach(property IN ITEMS LINK_OPTIONS LINK_DIRECTORIES)
    set_property(TARGET ${name} APPEND PROPERTY ${property} "$<TARGET_PROPERTY:${arg_MODULE},${property}>")
  endforeach()
  add_test(NAME ${name} COMMAND ${name})
endfunction()

# A program with the library of kahost that is Ka::LIBRARY, or Ka::LIBRARY32 where BITS are not the project's own; WHAT it is.
function(_ka_add_program command name bits library what)
  math(EXPR own "8 * ${CMAKE_SIZEOF_VOID_P}")
  if(bits LESS own)
    string(APPEND library 32)
  endif()
  if(NOT TARGET Ka::${library})
    message(FATAL_ERROR "${command}: ${name}: the target Ka::${library}, the ${what}, is missing:"
                        " it is not installed, or this folder has no find_package(Ka COMPONENTS Host)")
  endif()
  add_executable(${name} ${ARGN})
  # Not by target_link_libraries, after which a project could no longer choose between its two forms.
  set_property(TARGET ${name} APPEND PROPERTY LINK_LIBRARIES Ka::${library})
  set_property(TARGET ${name} PROPERTY KA_BITS ${bits})
  # Once the folder is read and the program's libraries are known.
  cmake_language(EVAL CODE "cmake_language(DEFER CALL _ka_check_libraries [[${name}]])")
endfunction()

# The options for who links with a library of a word size: those that make it, where it is not the project's own, and
# those with which 32-bit code of the x86 family computes in doubles, whatever the precision of the x87 registers.
function(_ka_interface library bits file)
  # Who calls a module finds its tables by their names; the shared host asks for these, an archive cannot.
  if(file MATCHES "kahost(_static|\\.a)")
    target_link_options(${library} INTERFACE -rdynamic)
  endif()
  if(bits EQUAL 64)
    return()
  endif()
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    target_compile_options(${library} INTERFACE -m32)
    target_link_options(${library} INTERFACE -m32)
    # Where Debian's gcc-multilib is not installed, only the compiler's own, the kernel's headers are beside the machine's.
    set(kernel_headers /usr/include/${CMAKE_LIBRARY_ARCHITECTURE})
    if(NOT EXISTS /usr/include/asm/errno.h AND EXISTS ${kernel_headers}/asm/errno.h)
      target_compile_options(${library} INTERFACE "SHELL:-idirafter ${kernel_headers}")
    endif()
  endif()
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
    target_compile_options(${library} INTERFACE -msse2 -mfpmath=sse)
  endif()
endfunction()

# find_package finds libraries of the machine's own word size; the linker would only say "skipping incompatible".
function(_ka_check_libraries module)
  get_target_property(libraries ${module} LINK_LIBRARIES)
  foreach(item IN LISTS libraries)
    _ka_check_library(${module} "${item}" "${item}")
  endforeach()
endfunction()
set(_ka_toolchain_32 "${CMAKE_CURRENT_LIST_DIR}/toolchain-32.cmake" CACHE INTERNAL "")
set(_ka_word_size "${CMAKE_CURRENT_LIST_DIR}/KaWordSize.cmake" CACHE INTERNAL "")

# ITEM is what the module is linked with because the project ASKED for something.
function(_ka_check_library module asked item)
  get_target_property(bits ${module} KA_BITS)
  get_target_property(checked ${module} KA_CHECKED)
  string(REGEX REPLACE "^\\$<(LINK_ONLY|BUILD_INTERFACE):(.*)>$" "\\2" item "${item}")
  if(item IN_LIST checked OR item MATCHES "^Ka::")
    return()
  endif()
  set_property(TARGET ${module} APPEND PROPERTY KA_CHECKED "${item}")
  set(files "")
  if(TARGET "${item}")
    _ka_files(files ${item})
    _ka_check_when_linked(${module} ${item})
    get_target_property(needed ${item} INTERFACE_LINK_LIBRARIES)
    foreach(next IN LISTS needed)
      _ka_check_library(${module} "${asked}" "${next}")
    endforeach()
  elseif(IS_ABSOLUTE "${item}")
    set(files "${item}")
  endif()
  foreach(file IN LISTS files)
    _ka_class(class "${file}")
    if(class AND NOT class EQUAL bits)
      message(SEND_ERROR
        "ka_add_module: ${module} has ${bits} bits, and ${asked} is a ${class}-bit library, ${file}. find_package finds those of"
        " the machine's own word size. Link the ${bits}-bit library by its bare name, or, where all modules of the project have"
        " 32 bits, configure it with -DCMAKE_TOOLCHAIN_FILE=${_ka_toolchain_32}")
    endif()
  endforeach()
endfunction()

# A library that the project itself makes, in a word size that its options decide.
function(_ka_check_when_linked module library)
  get_target_property(aliased ${library} ALIASED_TARGET)
  if(aliased)
    set(library ${aliased})
  endif()
  get_target_property(bits ${module} KA_BITS)
  get_target_property(imported ${library} IMPORTED)
  get_target_property(type ${library} TYPE)
  math(EXPR own "8 * ${CMAKE_SIZEOF_VOID_P}")
  if(bits EQUAL own OR imported OR NOT type MATCHES "^(STATIC|SHARED|OBJECT)_LIBRARY$")
    return()
  endif()
  set(files "$<TARGET_LINKER_FILE:${library}>")
  if(type STREQUAL OBJECT_LIBRARY)
    set(files "$<TARGET_OBJECTS:${library}>")
  endif()
  add_custom_command(
    TARGET ${module} PRE_LINK
    COMMAND ${CMAKE_COMMAND} -DMODULE=${module} -DBITS=${bits} -DLIBRARY=${library} "-DFILES=${files}" -P "${_ka_word_size}"
    VERBATIM)
endfunction()

# The files of an imported library.
function(_ka_files out target)
  set(files "")
  get_target_property(imported ${target} IMPORTED)
  get_target_property(configurations ${target} IMPORTED_CONFIGURATIONS)
  if(imported)
    foreach(suffix IN ITEMS "" ${configurations})
      string(REGEX REPLACE "(.+)" "_\\1" suffix "${suffix}")
      get_target_property(file ${target} IMPORTED_LOCATION${suffix})
      if(file)
        list(APPEND files ${file})
      endif()
    endforeach()
  endif()
  set(${out} ${files} PARENT_SCOPE)
endfunction()
