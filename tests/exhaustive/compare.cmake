# SPDX-License-Identifier: MIT
#
# Runs FIRST and SECOND and fails unless both succeed and print the same, which must not be nothing.
foreach(program FIRST SECOND)
  execute_process(COMMAND ${${program}} OUTPUT_VARIABLE ${program}_text RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${${program}} ended with ${status}")
  endif()
  string(LENGTH "${${program}_text}" size)
  if(size LESS 100000)
    message(FATAL_ERROR "${${program}} printed only ${size} characters")
  endif()
endforeach()
if(NOT FIRST_text STREQUAL SECOND_text)
  get_filename_component(second ${SECOND} NAME)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${second}.expected.txt "${FIRST_text}")
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${second}.txt "${SECOND_text}")
  execute_process(COMMAND diff ${second}.expected.txt ${second}.txt OUTPUT_VARIABLE difference
                  WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
  file(REMOVE ${CMAKE_CURRENT_BINARY_DIR}/${second}.expected.txt ${CMAKE_CURRENT_BINARY_DIR}/${second}.txt)
  string(SUBSTRING "${difference}" 0 2000 difference)
  message(FATAL_ERROR "${FIRST} and ${SECOND} disagree:\n${difference}")
endif()
