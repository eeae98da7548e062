# SPDX-License-Identifier: Apache-2.0
# vorn_warnings: what every source here is compiled with. A flag that a compiler does not know is left out.
include(CheckCCompilerFlag)
include(CheckCXXCompilerFlag)

set(flags -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wundef -Wvla -Wcast-qual
  -Wduplicated-cond -Wlogical-op -Wnull-dereference)
set(cxx_flags -Wold-style-cast -Wuseless-cast -Wnon-virtual-dtor -Woverloaded-virtual)

add_library(vorn_warnings INTERFACE)
foreach(flag ${flags} ${cxx_flags})
  string(MAKE_C_IDENTIFIER "VORN_HAS${flag}" known)
  check_cxx_compiler_flag(${flag} ${known}_CXX)
  if(${known}_CXX)
    target_compile_options(vorn_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:${flag}>)
  endif()
endforeach()
foreach(flag ${flags})
  string(MAKE_C_IDENTIFIER "VORN_HAS${flag}" known)
  check_c_compiler_flag(${flag} ${known}_C)
  if(${known}_C)
    target_compile_options(vorn_warnings INTERFACE $<$<COMPILE_LANGUAGE:C>:${flag}>)
  endif()
endforeach()
if(VORN_WERROR)
  target_compile_options(vorn_warnings INTERFACE -Werror)
endif()
