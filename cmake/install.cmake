# SPDX-License-Identifier: MIT
#
# What is installed, once for `cmake --install` and the Debian packages. Nothing in it depends on the prefix, so an
# installation can be moved.
#
#   ka_install(RULE...)   a rule of install(), whose COMPONENT is the Debian package that has the files
#   KA_INSTALL_LIB32DIR   the folder of 32-bit libraries beside those of the machine's own word size, which are in
#                         CMAKE_INSTALL_LIBDIR
#
# A rule is carried out in two layouts: prefix, which `cmake --install` takes, and debian, which only cpack asks for
# (cmake/packages.cmake). It names folders and files that differ between the two by
#   @LAYOUT@              prefix or debian
#   @LIB_64@ @LIB_32@     the folder of libraries of a word size
#   @GDB_64@ @GDB_32@     where gdb finds what it loads with the host library
# A file whose text depends on them is written once for each of KA_LAYOUTS.
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

set(KA_LAYOUTS prefix debian)
set(KA_LIB_prefix_${KA_OWN_WORLD} ${CMAKE_INSTALL_LIBDIR})
set(KA_LIB_debian_${KA_OWN_WORLD} lib/${CMAKE_LIBRARY_ARCHITECTURE})
if(KA_OWN_WORLD EQUAL 64)
  set(KA_LIB_prefix_32 ${KA_INSTALL_LIB32DIR})
  set(KA_LIB_debian_32 lib32)
else() # none are made
  set(KA_LIB_prefix_64 lib64)
  set(KA_LIB_debian_64 lib64)
endif()
foreach(bits IN LISTS KA_WORLDS)
  set(KA_GDB_prefix_${bits} ${KA_LIB_prefix_${bits}}) # beside the library
  set(KA_GDB_debian_${bits} share/gdb/auto-load/usr/${KA_LIB_debian_${bits}}) # where gdb needs not be allowed to
endforeach()

function(ka_install)
  string(REGEX MATCHALL "(^|;)COMPONENT;[^;]+" packages "${ARGN}")
  list(REMOVE_ITEM packages "" COMPONENT)
  if(NOT packages)
    message(FATAL_ERROR "ka_install: which package? No COMPONENT in: ${ARGN}")
  endif()
  set_property(GLOBAL APPEND PROPERTY KA_PACKAGES ${packages})
  foreach(layout IN LISTS KA_LAYOUTS)
    set(rule ${ARGN})
    list(TRANSFORM rule REPLACE "@LAYOUT@" ${layout})
    foreach(bits IN LISTS KA_WORLDS)
      list(TRANSFORM rule REPLACE "@LIB_${bits}@" ${KA_LIB_${layout}_${bits}})
      list(TRANSFORM rule REPLACE "@GDB_${bits}@" ${KA_GDB_${layout}_${bits}})
    endforeach()
    if(layout STREQUAL debian)
      string(REGEX REPLACE "(^|;)COMPONENT;([^;]+)" "\\1COMPONENT;debian-\\2;EXCLUDE_FROM_ALL" rule "${rule}")
    endif()
    install(${rule})
  endforeach()
endfunction()

# The package of a library: ka_package_name(OUT kahost BITS [-dev]) is libkahost1, lib32kahost1, libkahost-dev or lib32kahost-dev.
function(ka_package_name out name bits)
  set(lib lib)
  if(NOT bits EQUAL KA_OWN_WORLD)
    set(lib lib${bits})
  endif()
  set(end 1) # the SOVERSION
  if(ARGN)
    set(end ${ARGN})
  endif()
  set(${out} ${lib}${name}${end} PARENT_SCOPE)
endfunction()

foreach(bits IN LISTS KA_WORLDS)
  foreach(library IN ITEMS kahost kacall)
    ka_package_name(run ${library} ${bits})
    ka_package_name(dev ${library} ${bits} -dev)
    ka_install(TARGETS ${library}_${bits} LIBRARY DESTINATION @LIB_${bits}@ COMPONENT ${run} NAMELINK_SKIP)
    ka_install(TARGETS ${library}_${bits} LIBRARY DESTINATION @LIB_${bits}@ COMPONENT ${dev} NAMELINK_ONLY)
  endforeach()
  ka_package_name(host kahost ${bits})
  ka_package_name(host_dev kahost ${bits} -dev)
  ka_package_name(call_dev kacall ${bits} -dev)
  ka_lib_dir(built ${bits})
  ka_install(FILES ${built}/${KA_GDB_SCRIPT} DESTINATION @GDB_${bits}@ COMPONENT ${host})
  ka_install(TARGETS kahost_static_${bits} kahost_test_static_${bits} kadecimal_static_${bits} kamath_static_${bits}
             ARCHIVE DESTINATION @LIB_${bits}@ COMPONENT ${host_dev})
  ka_install(TARGETS kacall_static_${bits} ARCHIVE DESTINATION @LIB_${bits}@ COMPONENT ${call_dev})
endforeach()

# Headers of the caller's side include those of the host's.
set(call_headers ${public_headers})
list(FILTER call_headers INCLUDE REGEX "/caller/include/")
set(host_headers ${public_headers})
list(REMOVE_ITEM host_headers ${call_headers})
ka_install(FILES ${host_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ka COMPONENT libkahost-dev)
ka_install(FILES ${module_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ka/module COMPONENT libkahost-dev)
ka_install(FILES ${call_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ka COMPONENT libkacall-dev)
ka_install(FILES ${caller_json} DESTINATION ${CMAKE_INSTALL_DATADIR}/kahost COMPONENT libkacall-dev)
if(KA_TOOLS)
  ka_install(TARGETS ka RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT kahost-tools)
  ka_install(DIRECTORY ${PROJECT_BINARY_DIR}/share/ DESTINATION ${CMAKE_INSTALL_DATADIR} COMPONENT kahost-tools PATTERN kahost EXCLUDE)
endif()

#   ka_seen_from(FOLDER VARIABLE ...)   the paths in VARIABLEs as seen from a folder; both may be absolute or in the prefix
function(ka_seen_from folder)
  cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
  foreach(variable IN LISTS ARGN)
    set(path ${${variable}})
    cmake_path(ABSOLUTE_PATH path BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
    cmake_path(RELATIVE_PATH path BASE_DIRECTORY ${folder})
    string(REGEX REPLACE "/$" "" path "${path}")
    set(${variable} ${path} PARENT_SCOPE)
  endforeach()
endfunction()

# ---- The CMake package: where CMake looks for projects of both word sizes ------------------------------------------
set(to_prefix .)
ka_seen_from(lib/cmake/Ka to_prefix)
foreach(layout IN LISTS KA_LAYOUTS)
  set(includedir ${CMAKE_INSTALL_INCLUDEDIR})
  set(libdir_32 ${KA_LIB_${layout}_32})
  set(libdir_64 ${KA_LIB_${layout}_64})
  ka_seen_from(. includedir libdir_32 libdir_64)
  ka_package(${PROJECT_BINARY_DIR}/package/${layout} ${to_prefix} ${includedir} ${libdir_32} ${libdir_64})
endforeach()
ka_install(DIRECTORY ${PROJECT_BINARY_DIR}/package/@LAYOUT@/ DESTINATION lib/cmake/Ka COMPONENT libkahost-dev)

# ---- pkg-config ----------------------------------------------------------------------------------------------------
#   ka_pkgconfig(NAME BITS LIBRARY PACKAGE DESCRIPTION [FLAG ...])   NAME.pc, beside the libraries of the machine's own
#                                                     word size, where its pkg-config looks; FLAGs: of the compiler
# and another in the build folder, for what is built there.
function(ka_pkgconfig name bits library package description)
  list(TRANSFORM ARGN PREPEND " ")
  list(JOIN ARGN "" flags)
  foreach(layout IN LISTS KA_LAYOUTS)
    set(libdir ${KA_LIB_${layout}_${bits}})
    set(includedir ${CMAKE_INSTALL_INCLUDEDIR})
    set(to_prefix .)
    ka_seen_from(. libdir includedir)
    ka_seen_from(${KA_LIB_${layout}_${KA_OWN_WORLD}}/pkgconfig to_prefix)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/pkgconfig.in ${PROJECT_BINARY_DIR}/pkgconfig/${layout}/${name}.pc @ONLY)
  endforeach()
  ka_install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/@LAYOUT@/${name}.pc DESTINATION @LIB_${KA_OWN_WORLD}@/pkgconfig COMPONENT ${package})

  ka_lib_dir(libdir ${bits})
  cmake_path(GET libdir FILENAME libdir)
  set(includedir include)
  set(to_prefix ../..)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/pkgconfig.in ${PROJECT_BINARY_DIR}/lib/pkgconfig/${name}.pc @ONLY)
endfunction()

ka_pkgconfig(kacall ${KA_OWN_WORLD} kacall libkacall-dev "Calls function modules in processes of their own")
if(KA_OWN_WORLD EQUAL 64)
  ka_pkgconfig(kahost 64 kahost libkahost-dev "Provides main for a function module")
  if(32 IN_LIST KA_WORLDS)
    ka_pkgconfig(kahost32 32 kahost lib32kahost-dev "Provides main for a 32-bit function module" -m32 ${KA_FLAGS_32})
  endif()
else()
  ka_pkgconfig(kahost 32 kahost libkahost-dev "Provides main for a function module" ${KA_FLAGS_32})
endif()
