// SPDX-License-Identifier: ISC
// Text helpers: bounded copies, hexadecimal converters, SSID postfix, PIN check, shell words.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/kelm.h"

namespace kelm {

// Copies at most limit characters of text into a field of size bytes. The rest of the field becomes
// zero, its last byte always. All fixed-size fields are written by this function or the two below.
// Returns the number of characters copied.
size_t copy_text(char *field, size_t size, const char *text, size_t limit);

// The same for a whole array: as much of text as fits, with a terminator.
template <size_t size>
size_t copy_text(char (&field)[size], const char *text)
{
    return copy_text(field, size, text, size - 1);
}

// Copies at most size characters into a field that needs no terminator (PIN, node id). The rest of
// the field becomes zero.
void copy_fixed(char *field, size_t size, const char *text);

// An SSID is up to 32 bytes of any value. A field of 33 bytes holds it as text. If the SSID has a
// zero byte in it, the field's last byte is its length; else that byte is the terminator. So
// whoever reads the field as text finds the part before the zero byte.
void copy_ssid(char (&field)[WPS_SSID_SIZE], const char *bytes, size_t length);  // cut at 32
size_t ssid_len(const char *field);  // of WPS_SSID_SIZE bytes

// The number of bytes before the first zero byte in a field of size bytes.
size_t fixed_len(const char *field, size_t size);

bool starts_with(const char *text, const char *prefix);

// Writes text as one word of a shell command into out (size bytes). Text of letters, digits and
// "_-./:@%+,=" alone stays as it is, and so does empty text. Any other text is put in single
// quotes. Returns 0, or -1 with an empty out when the word does not fit; 4 * length + 3 bytes are
// always enough.
int shell_word(char *out, size_t size, const char *text);

// Reads n bytes from hexadecimal text into out. ' ', ':' and '-' are skipped wherever they stand,
// and text behind the n bytes is ignored. out must hold zeros before, since digits are ORed in.
// Returns 0, or -1 with all n bytes zero when the text has too few digits.
int _convert_hexstr_to_bytes(const char *text, uint8_t *out, size_t n);
int _convert_macstr_to_bytes(const char *text, uint8_t *out);   // 6 bytes
int _convert_uuidstr_to_bytes(const char *text, uint8_t *out);  // 16 bytes

// 0 for a valid WPS PIN (4 digits, or 8 with a right checksum), -1 otherwise. Logs the PIN.
int kelm_check_pin(const char *text);

// Appends postfix to ssid. If both together are longer than 32 bytes, ssid is cut and the postfix
// stands at the end of the 32 bytes. ssid: a field of WPS_SSID_SIZE. Does nothing when either is
// null.
void add_ssid_postfix(char *ssid, const char *postfix);

}  // namespace kelm
