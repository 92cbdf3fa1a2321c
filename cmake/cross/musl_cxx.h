// SPDX-License-Identifier: ISC
// Read before each C++ file of a musl build: Debian's C++ headers were set up for glibc and use two
// names that musl lacks.
#ifndef KELM_CMAKE_CROSS_MUSL_CXX_H
#define KELM_CMAKE_CROSS_MUSL_CXX_H

// Asked whether there are new threads, and no gets(): musl has the one and C++ forgot the other.
#define __GLIBC_PREREQ(major, minor) 1
// glibc's old name of the type.
#define __locale_t locale_t

#endif
