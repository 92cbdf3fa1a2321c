// SPDX-License-Identifier: ISC
// Hexadecimal escapes in the platform's texts. The platform offers these functions; the daemon
// itself calls none of them.
#pragma once

#include <cstddef>

namespace kelm {

int hex2num(char digit);         // 0 to 15, or -1
int hex2byte(const char *text);  // the byte of the first two characters, or -1

// Decodes groups of "\xNN" into bytes. out: out_max + 1 bytes, terminated. A group with bad digits
// gives the byte 0xFF. Returns 0. If anything stands there that is not such a group, it returns -1
// and out is empty.
int rtk_hexstr_unescape(char *out, const char *in, size_t in_length, size_t out_max);

}  // namespace kelm
