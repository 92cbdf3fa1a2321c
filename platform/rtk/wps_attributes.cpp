// SPDX-License-Identifier: ISC
// Hexadecimal digits to bytes, bytes to attributes.
#include "platform/rtk/wps_attributes.h"

#include <cstring>

#include "core/text.h"

namespace kelm {

namespace {

constexpr const char *BLANKS = " \t\r\n";
constexpr const char *DIGITS = "0123456789abcdefABCDEF";
constexpr ptrdiff_t HEAD_SIZE = 4;  // type and length, two bytes each

}  // namespace

int rtk_read_wps_payload(const char *text, uint8_t (&bytes)[WPS_PAYLOAD_MAX])
{
    text += strspn(text, BLANKS);
    const size_t digits = strcspn(text, BLANKS);
    const size_t count = digits / 2;
    if (digits % 2 != 0 || count > sizeof bytes || strspn(text, DIGITS) != digits)
        return -1;
    memset(bytes, 0, sizeof bytes);
    (void)_convert_hexstr_to_bytes(text, bytes, count);  // cannot fail: all are digits
    return static_cast<int>(count);
}

bool rtk_next_wps_attribute(wps_attributes *from, wps_attribute *next)
{
    if (from->at == from->end)
        return false;
    from->broken = from->end - from->at < HEAD_SIZE;
    if (from->broken)
        return false;
    next->type = rtk_wps_number(from->at);
    next->length = rtk_wps_number(from->at + 2);
    next->value = from->at + HEAD_SIZE;
    from->broken = next->length > static_cast<size_t>(from->end - next->value);
    if (from->broken)
        return false;
    from->at = next->value + next->length;
    return true;
}

uint16_t rtk_wps_number(const uint8_t *bytes)
{
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

size_t rtk_length_without_zeros(const uint8_t *bytes, size_t length)
{
    while (length > 0 && bytes[length - 1] == 0)
        --length;
    return length;
}

}  // namespace kelm
