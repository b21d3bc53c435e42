# SPDX-License-Identifier: MIT
#
# For a project of 32-bit modules only, on a 64-bit machine of the x86 family:
# cmake -DCMAKE_TOOLCHAIN_FILE=.../toolchain-32.cmake
set(_ka_flags "-m32 -msse2 -mfpmath=sse")
# Where Debian's gcc-multilib is not installed, only the compiler's own, the kernel's headers are beside the machine's.
if(NOT EXISTS /usr/include/asm/errno.h AND EXISTS /usr/include/x86_64-linux-gnu/asm/errno.h)
  string(APPEND _ka_flags " -idirafter /usr/include/x86_64-linux-gnu")
endif()
foreach(_ka_language IN ITEMS C CXX)
  set(CMAKE_${_ka_language}_FLAGS_INIT ${_ka_flags})
  # -DCMAKE_C_FLAGS=... would take their place.
  set(_ka_given "$CACHE{CMAKE_${_ka_language}_FLAGS}")
  if(_ka_given AND NOT _ka_given MATCHES "-m32")
    set(CMAKE_${_ka_language}_FLAGS "${_ka_flags} ${_ka_given}" CACHE STRING "Options of the compiler" FORCE)
  endif()
endforeach()
set(CMAKE_FIND_LIBRARY_CUSTOM_LIB_SUFFIX 32) # lib32 beside each lib
