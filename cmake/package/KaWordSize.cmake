# SPDX-License-Identifier: MIT
#
# The word size of a file; and, run before a module is linked with a LIBRARY of its own project, whose FILES exist by then:
# cmake -DMODULE=... -DBITS=... -DLIBRARY=... -DFILES=... -P KaWordSize.cmake
cmake_policy(VERSION 3.20...3.25)

#   _ka_class(OUT FILE)   32 or 64, the word size of an object, of a library or of an archive's first object; nothing for
#                         other files
function(_ka_class out file)
  set(${out} "" PARENT_SCOPE)
  if(NOT EXISTS "${file}" OR IS_DIRECTORY "${file}")
    return()
  endif()
  set(at 0)
  file(READ "${file}" magic LIMIT 8 HEX)
  if(magic STREQUAL 213c617263683e0a) # !<arch>
    set(at 8)
    while(TRUE) # over the archive's tables of names
      math(EXPR size_at "${at} + 48")
      file(READ "${file}" name OFFSET ${at} LIMIT 16)
      file(READ "${file}" size OFFSET ${size_at} LIMIT 10)
      math(EXPR at "${at} + 60")
      if(NOT name MATCHES "^/(/|SYM64/)? " OR NOT size MATCHES "^[0-9]+")
        break()
      endif()
      math(EXPR at "(${at} + ${CMAKE_MATCH_0} + 1) / 2 * 2")
    endwhile()
  endif()
  file(READ "${file}" head OFFSET ${at} LIMIT 5 HEX)
  if(head STREQUAL 7f454c4601)
    set(${out} 32 PARENT_SCOPE)
  elseif(head STREQUAL 7f454c4602)
    set(${out} 64 PARENT_SCOPE)
  endif()
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  foreach(file IN LISTS FILES)
    _ka_class(class "${file}")
    if(class AND NOT class EQUAL BITS)
      set(advice "target_compile_options(${LIBRARY} PRIVATE -m32 -msse2 -mfpmath=sse)")
      if(file MATCHES "[.]so$")
        string(APPEND advice " and target_link_options(${LIBRARY} PRIVATE -m32)")
      endif()
      message(FATAL_ERROR "ka_add_module: ${MODULE} has ${BITS} bits, and ${LIBRARY} is a ${class}-bit library, ${file}. Make"
                          " it one of ${BITS} bits: ${advice}")
    endif()
  endforeach()
endif()
