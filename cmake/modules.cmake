# SPDX-License-Identifier: MIT
#
# What modules and callers of other projects link with, by the names of the CMake package (cmake/package/KaConfig.cmake.in):
# in the project that includes this one, and, by a package in the build folder, in any other project.
include(cmake/package/KaModules.cmake)

#   ka_offer(NAME TARGET BITS)   TARGET as Ka::NAME
function(ka_offer name target bits)
  if(TARGET ${target})
    add_library(ka_offered_${name} INTERFACE)
    target_link_libraries(ka_offered_${name} INTERFACE ${target})
    _ka_interface(ka_offered_${name} ${bits} ${target})
    add_library(Ka::${name} ALIAS ka_offered_${name})
  endif()
endfunction()

foreach(bits IN LISTS KA_WORLDS)
  set(narrow "")
  if(NOT bits EQUAL KA_OWN_WORLD)
    set(narrow 32)
  endif()
  ka_offer(Host${narrow} kahost_${bits} ${bits})
  ka_offer(HostStatic${narrow} kahost_static_${bits} ${bits})
  ka_offer(HostTest${narrow} kahost_test_static_${bits} ${bits})
endforeach()
ka_offer(Call kacall_${KA_OWN_WORLD} ${KA_OWN_WORLD})

#   ka_package(FOLDER TO-PREFIX INCLUDEDIR LIBDIR-32 LIBDIR-64)   the package's files in FOLDER, all seen from the prefix
include(CMakePackageConfigHelpers)
function(ka_package folder to_prefix includedir libdir_32 libdir_64)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/package/KaConfig.cmake.in ${folder}/KaConfig.cmake @ONLY)
  # For both word sizes: KaConfig.cmake looks for what the project needs.
  write_basic_package_version_file(${folder}/KaConfigVersion.cmake COMPATIBILITY SameMinorVersion ARCH_INDEPENDENT)
  foreach(file KaModules.cmake KaWordSize.cmake toolchain-32.cmake)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/package/${file} ${folder}/${file} COPYONLY)
  endforeach()
endfunction()
ka_package(${PROJECT_BINARY_DIR}/lib/cmake/Ka ../../.. include lib lib64)
