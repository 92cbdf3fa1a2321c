// SPDX-License-Identifier: ISC
// Text helpers: bounded copies, hexadecimal converters, SSID postfix, PIN check, shell words.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/kelm.h"

namespace kelm {

// Copies at most limit characters of text into a field of size bytes and terminates it; the rest of
// the field becomes zero. The one way in which fixed-size fields are written. Returns the
// characters copied.
size_t copy_text(char *field, size_t size, const char *text, size_t limit);

// The same for a whole array: fills it as far as text goes, leaving room for the terminator.
template <size_t size>
size_t copy_text(char (&field)[size], const char *text)
{
    return copy_text(field, size, text, size - 1);
}

// Copies at most size characters into a field without terminator (PIN, node id), zero-filling the
// rest.
void copy_fixed(char *field, size_t size, const char *text);

// An SSID is up to 32 bytes of any kind. A field holds it as text; one with a zero byte in it has
// its length in the field's last byte, where all others have their terminator, so that copy_text
// and the readers of texts find the part before that byte.
void copy_ssid(char (&field)[WPS_SSID_SIZE], const char *bytes, size_t length);  // cut at 32
size_t ssid_len(const char *field);  // of WPS_SSID_SIZE bytes

// The part of a field of size bytes that stands before its first zero byte, in bytes.
size_t fixed_len(const char *field, size_t size);

bool starts_with(const char *text, const char *prefix);

// Writes text as one word of a shell command into out (size bytes). Text made only of letters,
// digits and "_-./:@%+,=" stays as it is, and so does empty text; anything else is put in single
// quotes. Returns 0, or -1 with an empty out when the word does not fit: 4 * length + 3 bytes
// always do.
int shell_word(char *out, size_t size, const char *text);

// Converts n bytes from hexadecimal text; ' ', ':' and '-' are skipped wherever they stand. Digits
// are ORed in, so out must be zero beforehand. Returns 0 when all n bytes were filled (further text
// is ignored); otherwise -1 with all n bytes zero.
int _convert_hexstr_to_bytes(const char *text, uint8_t *out, size_t n);
int _convert_macstr_to_bytes(const char *text, uint8_t *out);   // 6 bytes
int _convert_uuidstr_to_bytes(const char *text, uint8_t *out);  // 16 bytes

// 0 for a valid WPS PIN (4 digits, or 8 with a right checksum), -1 otherwise. Logs the PIN.
int kelm_check_pin(const char *text);

// Appends postfix to ssid, or puts it at the end of the 32 bytes when both are longer than
// that. ssid: a field of WPS_SSID_SIZE. Does nothing when either is null.
void add_ssid_postfix(char *ssid, const char *postfix);

}  // namespace kelm
