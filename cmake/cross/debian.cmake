# SPDX-License-Identifier: ISC
# What the target machines have in common: the compiler's names, and libraries from the build's own
# sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${KELM_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KELM_TRIPLET}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${KELM_EMULATOR} -L ${CMAKE_BINARY_DIR}/sysroot)

# The compiler brings its C library. If the target lacks something, nothing of the machine that
# builds may be found in its place.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_BINARY_DIR}/sysroot)
set(CMAKE_LIBRARY_ARCHITECTURE ${KELM_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_BINARY_DIR}/sysroot/usr/lib/${KELM_TRIPLET}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_BINARY_DIR}/sysroot)
