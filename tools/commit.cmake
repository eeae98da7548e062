# SPDX-License-Identifier: Apache-2.0
# Writes the commit that the tool is built from to a header, and only when it changed.
execute_process(COMMAND git describe --always --dirty --abbrev=10
  WORKING_DIRECTORY ${SOURCE} OUTPUT_VARIABLE commit ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT commit)
  set(commit "unknown")
endif()
file(CONFIGURE OUTPUT ${HEADER} CONTENT "#define VORN_COMMIT \"${commit}\"\n")
