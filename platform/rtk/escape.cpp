// SPDX-License-Identifier: ISC
// Hexadecimal escapes in the platform's texts.
#include "platform/rtk/escape.h"

namespace kelm {

namespace {

constexpr size_t GROUP_LEN = 4;  // "\x41"

// Whether a whole group stands at text. left: how many characters there are from text on. The
// digits are not looked at.
bool _is_group(const char *text, size_t left)
{
    return left >= GROUP_LEN && text[0] == '\\' && (text[1] == 'x' || text[1] == 'X');
}

}  // namespace

int hex2num(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

int hex2byte(const char *text)
{
    const int high = hex2num(text[0]);
    if (high < 0)
        return -1;
    const int low = hex2num(text[1]);
    return low < 0 ? -1 : (high << 4) | low;
}

int rtk_hexstr_unescape(char *out, const char *in, size_t in_length, size_t out_max)
{
    if (out == nullptr)
        return -1;
    out[0] = '\0';
    if (in == nullptr || in_length == 0 || out_max == 0)
        return -1;

    size_t count = 0;
    for (size_t i = 0; i < in_length && count < out_max; i += GROUP_LEN) {
        if (!_is_group(in + i, in_length - i)) {
            out[0] = '\0';
            return -1;
        }
        // Bad digits become the byte 0xFF, which is the low eight bits of -1. So one damaged group
        // costs one character of a name. If it were refused, the whole name would be lost.
        out[count++] = static_cast<char>(hex2byte(in + i + 2));
    }
    out[count] = '\0';
    return 0;
}

}  // namespace kelm
