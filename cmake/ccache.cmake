# SPDX-License-Identifier: Apache-2.0
# Where compilations go through ccache, what one clone of the project has compiled serves every other, and so do
# precompiled headers.
foreach(language C CXX)
  if(PROJECT_IS_TOP_LEVEL AND CMAKE_${language}_COMPILER_LAUNCHER MATCHES "^[^;]*ccache$")
    set(CMAKE_${language}_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros
      CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${CMAKE_${language}_COMPILER_LAUNCHER})
    if(CMAKE_${language}_COMPILER_ID STREQUAL "GNU")
      add_compile_options($<$<COMPILE_LANGUAGE:${language}>:-fpch-preprocess>)
    endif()
  endif()
endforeach()
