# SPDX-License-Identifier: Apache-2.0
# vorn_hardening: the same for everything that is built here, or the sanitizers in its place.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

add_library(vorn_hardening INTERFACE)
check_cxx_compiler_flag(-fstack-protector-strong VORN_HAS_STACK_PROTECTOR)
if(VORN_HAS_STACK_PROTECTOR)
  target_compile_options(vorn_hardening INTERFACE -fstack-protector-strong)
endif()
check_linker_flag(CXX -Wl,-z,relro,-z,now,-z,noexecstack VORN_HAS_RELRO)
if(VORN_HAS_RELRO)
  target_link_options(vorn_hardening INTERFACE -Wl,-z,relro,-z,now -Wl,-z,noexecstack)
endif()
if(VORN_SANITIZE)
  target_compile_options(vorn_hardening INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
    -fno-omit-frame-pointer -U_FORTIFY_SOURCE)
  target_link_options(vorn_hardening INTERFACE -fsanitize=address,undefined)
else()
  target_compile_options(vorn_hardening INTERFACE $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()
