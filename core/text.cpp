// SPDX-License-Identifier: ISC
// Text helpers: bounded copies, hexadecimal converters, SSID postfix, PIN check, shell words.
#include "core/text.h"

#include <cstring>

#include "core/log.h"

namespace kelm {

namespace {

constexpr size_t SSID_LEN = WPS_SSID_SIZE - 1;
constexpr size_t SHORT_PIN_LEN = 4;

bool _is_decimal(char c)
{
    return c >= '0' && c <= '9';
}

int _nibble(char c)
{
    if (_is_decimal(c))
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

bool _is_plain(char c)
{
    return _is_decimal(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           (c != '\0' && strchr("_-./:@%+,=", c) != nullptr);
}

bool _is_plain_word(const char *text)
{
    while (_is_plain(*text))
        ++text;
    return *text == '\0';
}

uint32_t _leading_number(const char *text)
{
    uint32_t number = 0;
    for (; _is_decimal(*text); ++text)
        number = number * 10 + static_cast<uint32_t>(*text - '0');
    return number;
}

// The last digit of a PIN is a checksum: with it the weighted sum of all digits ends in 0.
bool _has_pin_checksum(uint32_t number)
{
    uint32_t sum = 0;
    for (int position = 0; position < 8; ++position) {
        const uint32_t digit = number % 10;
        sum += (position % 2 == 0) ? digit : 3 * digit;
        number /= 10;
    }
    return sum % 10 == 0;
}

}  // namespace

size_t copy_text(char *field, size_t size, const char *text, size_t limit)
{
    if (size == 0)
        return 0;
    if (limit > size - 1)
        limit = size - 1;
    const size_t length = strnlen(text, limit);
    memmove(field, text, length);
    memset(field + length, 0, size - length);
    return length;
}

void copy_fixed(char *field, size_t size, const char *text)
{
    const size_t length = strnlen(text, size);
    memmove(field, text, length);
    memset(field + length, 0, size - length);
}

void copy_ssid(char (&field)[WPS_SSID_SIZE], const char *bytes, size_t length)
{
    if (length > SSID_LEN)
        length = SSID_LEN;
    memmove(field, bytes, length);
    memset(field + length, 0, sizeof field - length);
    if (strnlen(field, length) < length)
        field[SSID_LEN] = static_cast<char>(length);
}

size_t ssid_len(const char *field)
{
    const size_t text = strnlen(field, SSID_LEN);
    const auto told = static_cast<unsigned char>(field[SSID_LEN]);
    return text < told && told <= SSID_LEN ? told : text;
}

size_t fixed_len(const char *field, size_t size)
{
    return strnlen(field, size);
}

bool starts_with(const char *text, const char *prefix)
{
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

int shell_word(char *out, size_t size, const char *text)
{
    const bool plain = _is_plain_word(text);
    if (size < (plain ? strlen(text) + 1 : 4 * strlen(text) + 3)) {
        out[0] = '\0';
        return -1;
    }
    if (plain) {
        copy_text(out, size, text, size - 1);
        return 0;
    }
    char *end = out;
    *end++ = '\'';
    for (; *text != '\0'; ++text) {
        if (*text != '\'') {
            *end++ = *text;
            continue;
        }
        memcpy(end, "'\\''", 4);  // close, a quoted quote, open again
        end += 4;
    }
    *end++ = '\'';
    *end = '\0';
    return 0;
}

int _convert_hexstr_to_bytes(const char *text, uint8_t *out, size_t n)
{
    if (text == nullptr || out == nullptr)
        return -1;

    size_t nibbles = 0;
    for (; *text != '\0' && nibbles < 2 * n; ++text) {
        if (*text == ' ' || *text == ':' || *text == '-')
            continue;
        const int value = _nibble(*text);
        if (value < 0)
            break;
        const int shift = (nibbles % 2 == 0) ? 4 : 0;
        out[nibbles / 2] = static_cast<uint8_t>(out[nibbles / 2] | (value << shift));
        ++nibbles;
    }
    if (nibbles == 2 * n)
        return 0;
    memset(out, 0, n);
    return -1;
}

int _convert_macstr_to_bytes(const char *text, uint8_t *out)
{
    return _convert_hexstr_to_bytes(text, out, WPS_BSSID_LEN);
}

int _convert_uuidstr_to_bytes(const char *text, uint8_t *out)
{
    return _convert_hexstr_to_bytes(text, out, WPS_UUID_LEN);
}

int kelm_check_pin(const char *text)
{
    const size_t length = strlen(text);
    kelm_log_normal("pinCode: %s, len = %d\n", text, static_cast<int>(length));
    if (length == SHORT_PIN_LEN)
        return 0;
    if (length != WPS_PIN_LEN)
        return -1;
    // Only the digits before any other character count, as a shorter number: "1234567x" is checked
    // as 01234567.
    return _has_pin_checksum(_leading_number(text)) ? 0 : -1;
}

void add_ssid_postfix(char *ssid, const char *postfix)
{
    if (ssid == nullptr || postfix == nullptr)
        return;
    const size_t postfix_len = strnlen(postfix, SSID_LEN);
    size_t at = ssid_len(ssid);
    // By the postfix the user knows the networks apart: it is kept whole, and the name is cut.
    if (at + postfix_len > SSID_LEN)
        at = SSID_LEN - postfix_len;
    char whole[WPS_SSID_SIZE] = {};
    memcpy(whole, ssid, at);
    memcpy(whole + at, postfix, postfix_len);
    char field[WPS_SSID_SIZE];
    copy_ssid(field, whole, at + postfix_len);
    memcpy(ssid, field, sizeof field);
}

}  // namespace kelm
