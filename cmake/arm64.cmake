# SPDX-License-Identifier: Apache-2.0
# Cross-compiling for the terminals, with Debian's arm64 compiler and multiarch libraries.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# The whole system is the target's sysroot: Debian keeps the target's libraries in their multiarch folder.
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-aarch64-static;-L;/")
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
# Programs bring the C++ runtime along; the library needs none.
if(VORN_OLD_LIBC)
  set(CMAKE_EXE_LINKER_FLAGS_INIT "-static-libstdc++")
else()
  set(CMAKE_EXE_LINKER_FLAGS_INIT "-static-libstdc++ -static-libgcc")
endif()
