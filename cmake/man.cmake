# SPDX-License-Identifier: Apache-2.0
# The manual pages, in man/NAME.SECTION of the build tree: target man. SOURCE_DATE_EPOCH names their day.
find_package(Python3 COMPONENTS Interpreter)
if(NOT Python3_Interpreter_FOUND)
  message(WARNING "python3 was not found: the manual pages are not made")
  return()
endif()
set(man_folder ${PROJECT_BINARY_DIR}/man)
set(man_stamp ${PROJECT_BINARY_DIR}/man.stamp)
file(GLOB man_sources CONFIGURE_DEPENDS include/*.h include/vorn/*.h docs/*.md)
list(APPEND man_sources ${PROJECT_SOURCE_DIR}/scripts/man-pages)
set(man_commands "")
if(TARGET vorn)
  # The tool says what it takes.
  set(man_commands ${PROJECT_BINARY_DIR}/man-commands.json)
  add_custom_command(OUTPUT ${man_commands} VERBATIM
    COMMAND vorn complete --describe > ${man_commands} DEPENDS vorn)
endif()
add_custom_command(OUTPUT ${man_stamp} VERBATIM COMMENT "Manual pages"
  COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/scripts/man-pages --version ${PROJECT_VERSION}
    "$<$<BOOL:${man_commands}>:--commands;${man_commands}>" ${man_folder}
  COMMAND ${CMAKE_COMMAND} -E touch ${man_stamp}
  COMMAND_EXPAND_LISTS
  DEPENDS ${man_sources} ${man_commands})
add_custom_target(man ALL DEPENDS ${man_stamp})
