# SPDX-License-Identifier: ISC
# Builds for this machine's processor with musl, the C library of OpenWrt's routers, and Debian's
# musl-gcc; see script/cross.
set(CMAKE_SYSTEM_PROCESSOR ${CMAKE_HOST_SYSTEM_PROCESSOR})
set(KELM_TRIPLET ${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-musl)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
# The kernel runs these programs without an emulator.
unset(CMAKE_CROSSCOMPILING_EMULATOR)

# musl-gcc is made for C only, but it compiles C++ as gcc does. The C++ headers must come before
# those of the C library, since they include these. The kernel's headers must come last. The C++
# run-time library is never linked.
set(CMAKE_CXX_COMPILER ${CMAKE_C_COMPILER})
execute_process(COMMAND ${CMAKE_C_COMPILER} -print-multiarch
    OUTPUT_VARIABLE KELM_GCC_MULTIARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND ${CMAKE_C_COMPILER} -dumpversion
    OUTPUT_VARIABLE KELM_GCC_VERSION OUTPUT_STRIP_TRAILING_WHITESPACE)
set(KELM_KERNEL_HEADERS "-idirafter ${CMAKE_BINARY_DIR}/sysroot/usr/include/kernel")
string(CONCAT CMAKE_CXX_FLAGS_INIT
    "-isystem /usr/include/c++/${KELM_GCC_VERSION} "
    "-isystem /usr/include/${KELM_GCC_MULTIARCH}/c++/${KELM_GCC_VERSION} "
    "-include ${CMAKE_CURRENT_LIST_DIR}/musl_cxx.h ${KELM_KERNEL_HEADERS}")
set(CMAKE_C_FLAGS_INIT "${KELM_KERNEL_HEADERS}")

# Debian's gcc does the same for glibc. Without this, musl-gcc leaves the old table of symbols
# beside the new one.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--hash-style=gnu")

# musl's loader finds json-c beside the program, wherever a test world shows the build folder.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# The tests preload modules into the daemon, and the shells that it starts load them too. These
# shells are of the machine that builds and use its C library. A module that names no C library
# takes the one that is there.
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-nodefaultlibs")
