# SPDX-License-Identifier: MIT
#
# Debian packages of the call host, made by `cpack` in the build directory: libkahost1 for modules of the machine's own
# word size and, beside it, lib32kahost1 for 32-bit ones. Each is a component of the installation that only cpack asks
# for, since its folders are those of Debian whatever the prefix of this build is.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "the kahost authors <authors@kahost.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON) # the C library, of either word size
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
file(CONFIGURE OUTPUT triggers CONTENT "activate-noawait ldconfig\n") # the loader learns of the library
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/triggers)
set(CPACK_COMPONENTS_ALL "")

#   ka_host_package(NAME BITS FOLDER DESCRIPTION)
function(ka_host_package name bits folder description)
  install(TARGETS kahost_${bits} LIBRARY DESTINATION ${folder} COMPONENT ${name} EXCLUDE_FROM_ALL NAMELINK_SKIP)
  # Where Debian's gdb loads it for this library without being allowed to first.
  ka_lib_dir(built ${bits})
  install(FILES ${built}/${KA_GDB_SCRIPT} DESTINATION share/gdb/auto-load/usr/${folder} COMPONENT ${name} EXCLUDE_FROM_ALL)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION share/doc/${name} RENAME copyright COMPONENT ${name} EXCLUDE_FROM_ALL)
  string(TOUPPER ${name} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION ${description} PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${name} PARENT_SCOPE)
endfunction()

set(purpose "Provides main for a function module: an executable whose functions
an interpreter calls in a process of their own. Native code that crashes
ends that process, never the interpreter.")
ka_host_package(libkahost1 ${KA_OWN_WORLD} lib/${CMAKE_LIBRARY_ARCHITECTURE} "call host for function modules\n${purpose}")
if(32 IN_LIST KA_WORLDS AND KA_OWN_WORLD EQUAL 64)
  ka_host_package(lib32kahost1 32 lib32 "call host for 32-bit function modules\n${purpose}")
endif()
include(CPack)
