# SPDX-License-Identifier: ISC
# Builds for a 64-bit big-endian machine with Debian's cross compiler; see script/cross.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(KELM_TRIPLET s390x-linux-gnu)
set(KELM_EMULATOR qemu-s390x-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
