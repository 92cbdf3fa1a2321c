// SPDX-License-Identifier: ISC
// Hexadecimal escapes in the platform's texts. Here for the platform: the daemon itself calls none
// of it.
#pragma once

#include <cstddef>

namespace kelm {

int hex2num(char digit);         // 0 to 15, or -1
int hex2byte(const char *text);  // of the first two characters, or -1

// Decodes groups of "\xNN" into bytes. out: out_max + 1 bytes, terminated. A group whose digits are
// none gives the byte 0xFF. Returns 0, or -1 with an empty out for anything that is no such group.
int rtk_hexstr_unescape(char *out, const char *in, size_t in_length, size_t out_max);

}  // namespace kelm
