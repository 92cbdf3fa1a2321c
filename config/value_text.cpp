// SPDX-License-Identifier: ISC
// Quoted, escaped and hexadecimal values.
#include "config/value_text.h"

#include <cstring>

#include "core/log.h"
#include "core/text.h"

namespace kelm {

namespace {

constexpr char ESCAPE = '\033';

struct escape_row {
    char letter;
    char byte;
};

constexpr escape_row ESCAPES[] = {{'"', '"'},  {'\\', '\\'}, {'n', '\n'},
                                  {'r', '\r'}, {'t', '\t'},  {'e', ESCAPE}};

bool _is_octal(char c)
{
    return c >= '0' && c <= '7';
}

// The value of a digit; -1 for any other character.
int _hex_digit(char c)
{
    constexpr char digits[] = "0123456789abcdef";
    const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    const char *at = lower != '\0' ? strchr(digits, lower) : nullptr;
    return at != nullptr ? static_cast<int>(at - digits) : -1;
}

// Reads up to count digits of a base, and makes one byte of them. text: length bytes. Returns the
// number of digits read.
size_t _read_number(const char *text, size_t length, size_t count, int base, char *byte)
{
    int number = 0;
    size_t read = 0;
    for (; read < count && read < length; ++read) {
        const int digit = base == 8 && !_is_octal(text[read]) ? -1 : _hex_digit(text[read]);
        if (digit < 0)
            break;
        number = number * base + digit;
    }
    *byte = static_cast<char>(number);
    return read;
}

// Reads what stands behind a backslash, and makes one byte of it. Returns the number of characters
// read. 0 means that this is no escape: the backslash is left out then.
size_t _read_escape(const char *text, size_t length, char *byte)
{
    if (length == 0)
        return 0;
    for (const escape_row &row : ESCAPES) {
        if (row.letter == text[0]) {
            *byte = row.byte;
            return 1;
        }
    }
    if (text[0] == 'x') {
        const size_t digits = _read_number(text + 1, length - 1, 2, 16, byte);
        return digits == 0 ? 0 : digits + 1;
    }
    return _read_number(text, length, 3, 8, byte);
}

size_t _decode_escapes(const char *text, size_t length, char *out, size_t limit)
{
    size_t made = 0;
    size_t at = 0;
    while (at < length && made < limit) {
        if (text[at] != '\\') {
            out[made++] = text[at++];
            continue;
        }
        ++at;
        const size_t read = _read_escape(text + at, length - at, &out[made]);
        // "\x" without a digit behind it gives no byte.
        at += read == 0 && at < length && text[at] == 'x' ? 1 : read;
        made += read == 0 ? 0 : 1;
    }
    return made;
}

bool _is_hexadecimal(const char *text, size_t length)
{
    for (size_t at = 0; at < length; ++at) {
        if (_hex_digit(text[at]) < 0)
            return false;
    }
    return length % 2 == 0;
}

size_t _decode_digits(const char *text, size_t length, char *out, size_t limit)
{
    size_t made = 0;
    for (size_t at = 0; at < length && made < limit; at += 2)
        (void)_read_number(text + at, 2, 2, 16, &out[made++]);
    return made;
}

size_t _decode(const char *text, size_t length, char *out, size_t limit)
{
    if (length >= 2 && text[0] == '"' && text[length - 1] == '"')
        return copy_text(out, limit + 1, text + 1, length - 2);
    if (length >= 3 && text[0] == 'P' && text[1] == '"' && text[length - 1] == '"')
        return _decode_escapes(text + 2, length - 3, out, limit);
    if (_is_hexadecimal(text, length))
        return _decode_digits(text, length, out, limit);
    return copy_text(out, limit + 1, text, length);
}

// Stores a password if it fits. bytes: the bytes that the value stands for. written: the value as
// it is in the file.
void _take_if_fitting(const char *bytes, size_t length, const char *written,
                      char (&password)[WPS_PASSWORD_SIZE])
{
    const char *text = strlen(bytes) == length ? bytes : written;
    const bool fits = strlen(text) < WPS_PASSWORD_SIZE;
    if (!fits)
        kelm_log_left_out_password();
    copy_text(password, fits ? text : "");
}

}  // namespace

size_t kelm_decode_value(const char *value, char *out, size_t size)
{
    if (size == 0)
        return 0;
    const size_t made = _decode(value, strlen(value), out, size - 1);
    out[made] = '\0';
    return made;
}

size_t kelm_decode_item(const hapd_wpasupp_cfgitem &item, char *out, size_t size)
{
    return item.quoted ? copy_text(out, size, item.value, item.value_len)
                       : kelm_decode_value(item.value, out, size);
}

void kelm_decode_ssid(const hapd_wpasupp_cfgitem &item, char (&ssid)[WPS_SSID_SIZE])
{
    char bytes[CFG_VALUE_SIZE];
    copy_ssid(ssid, bytes, kelm_decode_item(item, bytes, sizeof bytes));
}

void kelm_decode_ssid(const char *value, char (&ssid)[WPS_SSID_SIZE])
{
    char bytes[CFG_VALUE_SIZE];
    copy_ssid(ssid, bytes, kelm_decode_value(value, bytes, sizeof bytes));
}

void kelm_take_sae_password(const hapd_wpasupp_cfgitem &item, char (&password)[WPS_PASSWORD_SIZE])
{
    char bytes[CFG_VALUE_SIZE];
    const size_t length = kelm_decode_item(item, bytes, sizeof bytes);
    _take_if_fitting(bytes, length, item.value, password);
}

void kelm_take_sae_password(const char *value, char (&password)[WPS_PASSWORD_SIZE])
{
    char bytes[CFG_VALUE_SIZE];
    const size_t length = kelm_decode_value(value, bytes, sizeof bytes);
    _take_if_fitting(bytes, length, value, password);
}

void kelm_log_left_out_password()
{
    kelm_log_as("kelm_take_sae_password", KELM_LOG_ALWAYS,
                "sae_password is longer than %zu bytes, left out\n", WPS_PASSWORD_SIZE - 1);
}

}  // namespace kelm
