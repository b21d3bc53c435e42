# SPDX-License-Identifier: MIT
#
# What `cmake --install` installs. Nothing in it depends on the prefix, so an installation can be moved.
#
#   KA_INSTALL_LIB32DIR   the folder of 32-bit libraries beside those of the machine's own word size, which are in
#                         CMAKE_INSTALL_LIBDIR
include(GNUInstallDirs)

# On Debian the 32-bit linker looks into lib32, and the loader too where the C library of multilib is installed; where
# it is that of the i386 architecture, into its folder.
if(NOT DEFINED KA_INSTALL_LIB32DIR)
  set(lib32 lib32)
  if(32 IN_LIST KA_WORLDS)
    execute_process(COMMAND ${CMAKE_C_COMPILER} -m32 -print-file-name=libc.so OUTPUT_VARIABLE libc ERROR_QUIET)
    if(libc MATCHES "/i386-linux-gnu/")
      set(lib32 lib/i386-linux-gnu)
    endif()
  endif()
  set(KA_INSTALL_LIB32DIR ${lib32} CACHE STRING "Folder of 32-bit libraries beside those of the machine's own word size")
endif()

function(ka_install_folder out bits)
  if(bits EQUAL KA_OWN_WORLD)
    set(${out} ${CMAKE_INSTALL_LIBDIR} PARENT_SCOPE)
  else()
    set(${out} ${KA_INSTALL_LIB32DIR} PARENT_SCOPE)
  endif()
endfunction()

foreach(bits IN LISTS KA_WORLDS)
  ka_install_folder(folder ${bits})
  install(TARGETS kahost_${bits} kahost_static_${bits} kacall_${bits} kadecimal_static_${bits} kamath_static_${bits} kacall_static_${bits}
          LIBRARY DESTINATION ${folder}
          ARCHIVE DESTINATION ${folder})
  ka_lib_dir(built ${bits})
  install(FILES ${built}/${KA_GDB_SCRIPT} DESTINATION ${folder})
endforeach()
install(FILES ${public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ka)
install(FILES ${module_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ka/module)
if(KA_TOOLS)
  install(TARGETS ka RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(DIRECTORY ${PROJECT_BINARY_DIR}/share/ DESTINATION ${CMAKE_INSTALL_DATADIR})
endif()

#   ka_seen_from(FOLDER VARIABLE ...)   the paths in VARIABLEs as seen from a folder; both may be absolute or in the prefix
function(ka_seen_from folder)
  cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
  foreach(variable IN LISTS ARGN)
    set(path ${${variable}})
    cmake_path(ABSOLUTE_PATH path BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
    cmake_path(RELATIVE_PATH path BASE_DIRECTORY ${folder})
    set(${variable} ${path} PARENT_SCOPE)
  endforeach()
endfunction()

# ---- The CMake package: where CMake looks for projects of both word sizes ------------------------------------------
set(includedir ${CMAKE_INSTALL_INCLUDEDIR})
ka_install_folder(libdir_32 32)
ka_install_folder(libdir_64 64)
set(to_prefix .)
ka_seen_from(. includedir libdir_32 libdir_64)
ka_seen_from(lib/cmake/Ka to_prefix)
ka_package(${PROJECT_BINARY_DIR}/package ${to_prefix} ${includedir} ${libdir_32} ${libdir_64})
install(DIRECTORY ${PROJECT_BINARY_DIR}/package/ DESTINATION lib/cmake/Ka)

# ---- pkg-config ----------------------------------------------------------------------------------------------------
#   ka_pkgconfig(NAME BITS LIBRARY DESCRIPTION [FLAG ...])   NAME.pc, beside the libraries of the machine's own word
#                                                            size, where its pkg-config looks; FLAGs: of the compiler
# and another in the build folder, for what is built there.
function(ka_pkgconfig name bits library description)
  list(TRANSFORM ARGN PREPEND " ")
  list(JOIN ARGN "" flags)
  ka_install_folder(libdir ${bits})
  set(includedir ${CMAKE_INSTALL_INCLUDEDIR})
  set(to_prefix .)
  ka_seen_from(. libdir includedir)
  ka_seen_from(${CMAKE_INSTALL_LIBDIR}/pkgconfig to_prefix)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/pkgconfig.in ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

  ka_lib_dir(libdir ${bits})
  cmake_path(GET libdir FILENAME libdir)
  set(includedir include)
  set(to_prefix ../..)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/pkgconfig.in ${PROJECT_BINARY_DIR}/lib/pkgconfig/${name}.pc @ONLY)
endfunction()

ka_pkgconfig(kacall ${KA_OWN_WORLD} kacall "Calls function modules in processes of their own")
if(KA_OWN_WORLD EQUAL 64)
  ka_pkgconfig(kahost 64 kahost "Provides main for a function module")
  if(32 IN_LIST KA_WORLDS)
    ka_pkgconfig(kahost32 32 kahost "Provides main for a 32-bit function module" -m32 ${KA_FLAGS_32})
  endif()
else()
  ka_pkgconfig(kahost 32 kahost "Provides main for a function module" ${KA_FLAGS_32})
endif()
