# SPDX-License-Identifier: MIT
#
# Run by cpack on the folder of each package before it is packed: adds what Debian wants in all of them, so that lintian
# has nothing to say, and the same sources give the same packages.
#
#   CPACK_KA_SOURCE   the project's folder
#   CPACK_KA_DATE     of the release, in seconds since 1970
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  set(ENV{SOURCE_DATE_EPOCH} ${CPACK_KA_DATE}) # of every file in the packages
endif()
set(version ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(add_documents name folder)
  set(doc ${folder}/usr/share/doc/${name})
  configure_file(${CPACK_KA_SOURCE}/LICENSE ${doc}/copyright COPYONLY)
  foreach(headers IN LISTS CPACK_KA_HEADERS_OF_${name}) # whose code is in it, too
    file(READ /usr/share/doc/${headers}/copyright text)
    file(APPEND ${doc}/copyright "\n\nThis package contains code of ${headers}:\n\n${text}")
  endforeach()
  configure_file(${CPACK_KA_SOURCE}/CHANGELOG.md ${doc}/changelog COPYONLY)
  execute_process(COMMAND date --utc --rfc-email --date=@$ENV{SOURCE_DATE_EPOCH} OUTPUT_VARIABLE date)
  file(WRITE ${doc}/changelog.Debian "kahost (${version}) unstable; urgency=medium\n\n"
       "  * Release ${CPACK_PACKAGE_VERSION}.\n\n -- ${CPACK_PACKAGE_CONTACT}  ${date}")
  file(GLOB_RECURSE pages ${folder}/usr/share/man/*)
  run(gzip --best --no-name --force ${doc}/changelog ${doc}/changelog.Debian ${pages})
  foreach(kind IN ITEMS lintian-overrides:lintian/overrides doc-base:doc-base)
    string(REGEX MATCH "(.*):(.*)" _ ${kind})
    set(file ${CPACK_KA_SOURCE}/cmake/debian/${name}.${CMAKE_MATCH_1})
    if(EXISTS ${file})
      configure_file(${file} ${folder}/usr/share/${CMAKE_MATCH_2}/${name} COPYONLY)
    endif()
  endforeach()
endfunction()

# Where programs and libraries are changed, and the names listed that a library exports.
function(finish_binaries name folder)
  file(GLOB_RECURSE archives ${folder}/usr/lib*/*.a)
  if(archives)
    run(strip --strip-debug --remove-section=.comment --enable-deterministic-archives ${archives})
  endif()
  file(GLOB programs ${folder}/usr/bin/*)
  file(GLOB_RECURSE libraries ${folder}/usr/lib*/*.so.*)
  foreach(binary IN LISTS programs libraries)
    if(NOT IS_SYMLINK ${binary})
      run(strip --strip-all --remove-section=.comment --remove-section=.note ${binary})
    endif()
  endforeach()
  if(libraries)
    set(control ${folder}-control)
    file(WRITE ${control}/triggers "activate-noawait ldconfig\n") # the loader learns of the library
    run(dpkg-gensymbols -q -p${name} -v${CPACK_PACKAGE_VERSION} -P${folder} -O${control}/symbols)
    string(REGEX REPLACE "[0-9]+$" "-dev" dev ${name})
    file(READ ${control}/symbols symbols)
    string(REPLACE "#MINVER#\n" "#MINVER#\n* Build-Depends-Package: ${dev}\n" symbols "${symbols}")
    file(WRITE ${control}/symbols "${symbols}")
    # cpack would write scripts that do what the trigger does. It takes those that are named here instead, of which
    # there are none.
    string(TOUPPER debian-${name} component)
    set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA
        ${control}/symbols ${control}/triggers ${control}/postinst ${control}/postrm PARENT_SCOPE)
  endif()
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(REPLACE debian- "" name ${component})
  set(folder ${CPACK_TEMPORARY_DIRECTORY}/${component})
  add_documents(${name} ${folder})
  finish_binaries(${name} ${folder})
endforeach()
