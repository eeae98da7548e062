# SPDX-License-Identifier: Apache-2.0
# Writes the commit that the tool is built from to a header, and only when it changed. A tree without its history is
# told which one it is: COMMIT.
set(commit "${COMMIT}")
if(NOT commit)
  execute_process(COMMAND git describe --always --dirty --abbrev=10
    WORKING_DIRECTORY ${SOURCE} OUTPUT_VARIABLE commit ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
if(NOT commit)
  set(commit "unknown")
endif()
file(CONFIGURE OUTPUT ${HEADER} CONTENT "#define VORN_COMMIT \"${commit}\"\n")
