# SPDX-License-Identifier: MIT
#
# Debian packages, made by `cpack` in the build directory. Their files are those that cmake/install.cmake gives to the
# component of that name, in Debian's folders whatever the prefix of this build is. Here is what else a package has;
# cmake/debian/finish.cmake adds what Debian wants in each.
set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_CONTACT "the kahost authors <authors@kahost.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/finish.cmake)
set(CPACK_KA_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_KA_HEADERS_OF_kahost-tools libcli11-dev nlohmann-json3-dev)
execute_process(COMMAND date --utc --date=${KA_RELEASE_DATE} +%s OUTPUT_VARIABLE CPACK_KA_DATE OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 0kahost1) # less than any of Debian's own
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON) # the C library, of either word size
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENTS_ALL "")

#   ka_debian(NAME SECTION FIELD-VALUE... TEXT SYNOPSIS LINE...)   FIELDs: DEPENDS RECOMMENDS SUGGESTS ARCHITECTURE
function(ka_debian name section)
  get_property(packages GLOBAL PROPERTY KA_PACKAGES)
  if(NOT name IN_LIST packages)
    return() # of a word size that is not built
  endif()
  cmake_parse_arguments(arg "" "ARCHITECTURE" "DEPENDS;RECOMMENDS;SUGGESTS;TEXT" ${ARGN})
  string(TOUPPER debian-${name} component)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} debian-${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${component}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${component}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  foreach(field IN ITEMS DEPENDS RECOMMENDS SUGGESTS ARCHITECTURE)
    list(JOIN arg_${field} ", " value)
    set(CPACK_DEBIAN_${component}_PACKAGE_${field} "${value}" PARENT_SCOPE)
  endforeach()
  list(JOIN arg_TEXT "\n" text)
  set(CPACK_DEBIAN_${component}_DESCRIPTION "${text}" PARENT_SCOPE)
endfunction()

set(same "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(modules "A function module is an executable whose functions an interpreter calls"
            "in a process of their own. Native code that crashes ends that process,"
            "never the interpreter.")
foreach(bits IN LISTS KA_WORLDS)
  ka_package_name(host kahost ${bits})
  ka_package_name(host_dev kahost ${bits} -dev)
  ka_package_name(call kacall ${bits})
  ka_package_name(call_dev kacall ${bits} -dev)
  if(bits EQUAL KA_OWN_WORLD)
    ka_debian(${host} libs
              TEXT "call host for function modules" ${modules} . "This library provides main for such a module.")
    ka_debian(${host_dev} libdevel DEPENDS "${host} ${same}" "libc6-dev | libc-dev" RECOMMENDS "gcc | c-compiler" pkgconf
              SUGGESTS g++ cmake kahost-tools kahost-doc
              TEXT "headers and libraries to write function modules" ${modules} .
                   "With this package, \"cc module.c -lkahost -o module\" builds one in C or C++.")
    ka_debian(${call} libs
              TEXT "calls function modules" ${modules} . "This library is the side of the interpreter.")
    ka_debian(${call_dev} libdevel DEPENDS "${call} ${same}" "${host_dev} ${same}" SUGGESTS kahost-doc
              TEXT "headers and libraries to call function modules" ${modules} .
                   "With this package, an interpreter is made that calls them.")
  else()
    # gcc-multilib conflicts with every cross compiler, and apt removes packages for a recommended one, too, also for one that
    # libc6-dev-i386 recommends: neither is asked for where a cross compiler, which has one of these, is installed.
    execute_process(COMMAND gcc -dumpversion OUTPUT_VARIABLE gcc OUTPUT_STRIP_TRAILING_WHITESPACE)
    string(REGEX MATCH "^[0-9]+" gcc "${gcc}")
    set(cross "gcc-${gcc}-cross-base | gcc-${gcc}-cross-base-ports | gcc-${gcc}-cross-base-mipsen")
    ka_package_name(own_dev kahost ${KA_OWN_WORLD} -dev)
    ka_package_name(own_call_dev kacall ${KA_OWN_WORLD} -dev)
    ka_debian(${host} libs
              TEXT "call host for function modules of ${bits} bits" ${modules} .
                   "This library provides main for such a module of ${bits} bits.")
    ka_debian(${host_dev} libdevel DEPENDS "${host} ${same}" "${own_dev} ${same}"
              RECOMMENDS "gcc-multilib | ${cross}" "g++-multilib | ${cross}"
              TEXT "libraries to write function modules of ${bits} bits" ${modules} .
                   "With this package, \"cc -m32 -msse2 -mfpmath=sse module.c -lkahost -o module\""
                   "builds one of ${bits} bits.")
    ka_debian(${call} libs
              TEXT "calls function modules from programs of ${bits} bits" ${modules} .
                   "This library is the side of an interpreter of ${bits} bits.")
    ka_debian(${call_dev} libdevel DEPENDS "${call} ${same}" "${own_call_dev} ${same}" "${host_dev} ${same}"
              TEXT "libraries to call function modules from programs of ${bits} bits" ${modules} .
                   "With this package, an interpreter of ${bits} bits is made that calls them.")
  endif()
endforeach()

# The libraries that ka opens itself, which no program header names.
set(opened "")
foreach(library IN ITEMS ${KA_LIBELF} ${KA_LIBDW} ${KA_LIBEDIT})
  file(REAL_PATH ${library} file)
  execute_process(COMMAND dpkg-query -S ${file} OUTPUT_VARIABLE owner ERROR_QUIET)
  if(owner MATCHES "^([^:]+):")
    list(APPEND opened ${CMAKE_MATCH_1})
  endif()
endforeach()
ka_debian(kahost-tools devel DEPENDS ${opened} RECOMMENDS gdb SUGGESTS libkahost-dev kahost-doc
          TEXT "lists, calls, debugs and checks function modules" ${modules} .
               "This package has the command ka, by which a module is listed, called, debugged"
               "and checked, and its host process looked at.")
ka_debian(kahost-doc doc ARCHITECTURE all
          TEXT "documents and examples of function modules" ${modules} .
               "This package has the guides for those who write modules or call them, the"
               "reference, and examples.")
get_property(packages GLOBAL PROPERTY KA_PACKAGES)
foreach(package IN LISTS packages)
  if(NOT debian-${package} IN_LIST CPACK_COMPONENTS_ALL)
    message(FATAL_ERROR "${package} is a COMPONENT of cmake/install.cmake, and no package of cmake/packages.cmake")
  endif()
endforeach()
include(CPack)
