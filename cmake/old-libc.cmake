# SPDX-License-Identifier: Apache-2.0
# VORN_OLD_LIBC: a folder with the C library that programs are linked with (packaging/oldest-libc), when it is older than
# the compiler's own. The C++ runtime and OpenSSL then come along in the tool, since an old terminal has older ones.
# Another library that has its .pc file in `others` there is taken before the system's.
add_link_options(-B${VORN_OLD_LIBC} -L${VORN_OLD_LIBC})
set(ENV{PKG_CONFIG_PATH} ${VORN_OLD_LIBC}/others)
set(OPENSSL_USE_STATIC_LIBS TRUE)
add_library(vorn_old_libc STATIC ${CMAKE_CURRENT_LIST_DIR}/old-libc.c)
# The compiler's own libgcc_s asks for more than the old C library has; the terminal's does not.
target_link_options(vorn_old_libc INTERFACE -static-libstdc++ -Wl,--allow-shlib-undefined)
target_link_libraries(vorn_old_libc INTERFACE pthread dl)
