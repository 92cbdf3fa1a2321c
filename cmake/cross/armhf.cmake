# SPDX-License-Identifier: ISC
# Builds for 32-bit ARM, little-endian, with Debian's cross compiler; see script/cross.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(KELM_TRIPLET arm-linux-gnueabihf)
set(KELM_EMULATOR qemu-arm-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
