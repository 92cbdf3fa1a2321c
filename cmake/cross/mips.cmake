# SPDX-License-Identifier: ISC
# Builds for 32-bit MIPS, big-endian, with Debian's cross compiler; see script/cross.
set(CMAKE_SYSTEM_PROCESSOR mips)
set(KELM_TRIPLET mips-linux-gnu)
set(KELM_EMULATOR qemu-mips-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
