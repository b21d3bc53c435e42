# SPDX-License-Identifier: MIT
#
# For a project of 32-bit modules only, on a 64-bit machine of the x86 family:
# cmake -DCMAKE_TOOLCHAIN_FILE=.../toolchain-32.cmake
set(CMAKE_C_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
# Where Debian's gcc-multilib is not installed, only the compiler's own, the kernel's headers are beside the machine's.
if(NOT EXISTS /usr/include/asm/errno.h AND EXISTS /usr/include/x86_64-linux-gnu/asm/errno.h)
  string(APPEND CMAKE_C_FLAGS_INIT " -idirafter /usr/include/x86_64-linux-gnu")
endif()
set(CMAKE_CXX_FLAGS_INIT ${CMAKE_C_FLAGS_INIT})
set(CMAKE_FIND_LIBRARY_CUSTOM_LIB_SUFFIX 32) # lib32 beside each lib
