// SPDX-License-Identifier: ISC
// Read before each C++ file of a musl build: Debian's C++ headers were set up for glibc and use two
// names that musl lacks.
#ifndef KELM_CMAKE_CROSS_MUSL_CXX_H
#define KELM_CMAKE_CROSS_MUSL_CXX_H

// The C++ headers use this to ask whether threads are as in a new glibc, and gets() is gone. For
// musl the answer is yes: it has such threads, and C++ has no gets() any more.
#define __GLIBC_PREREQ(major, minor) 1
// glibc's old name of the type.
#define __locale_t locale_t

#endif
