// SPDX-License-Identifier: ISC
// Values in the files of hostapd and wpa_supplicant. Both have forms for bytes that may not be
// plain text.
#pragma once

#include <cstddef>

#include "config/conf_tree.h"
#include "core/kelm.h"

namespace kelm {

// Writes the bytes that a value stands for into out, terminated. Returns the number of bytes; zeros
// may be among them. size: of out. strlen(value) + 1 is always enough; what does not fit is cut. A
// value stands for
// - the bytes between double quotes;
// - the bytes of P"..." with its escapes;
// - the bytes that an even number of hexadecimal digits spells;
// - itself, if it is any other text. Both daemons refuse such a value.
size_t kelm_decode_value(const char *value, char *out, size_t size);

// The same for the value of a parsed line. Its quotes are already removed.
size_t kelm_decode_item(const hapd_wpasupp_cfgitem &item, char *out, size_t size);

// Sets ssid to the SSID that a parsed line or a value names.
void kelm_decode_ssid(const hapd_wpasupp_cfgitem &item, char (&ssid)[WPS_SSID_SIZE]);
void kelm_decode_ssid(const char *value, char (&ssid)[WPS_SSID_SIZE]);

// Sets password to the password of a "sae_password" line. No field can hold a password with a zero
// byte; such a password stays as it is written in the line. A password that is too long is left out
// (logged), and password becomes empty: a cut one would let nobody in.
void kelm_take_sae_password(const hapd_wpasupp_cfgitem &item, char (&password)[WPS_PASSWORD_SIZE]);
void kelm_take_sae_password(const char *value, char (&password)[WPS_PASSWORD_SIZE]);

// Writes the log line for a password that was left out.
void kelm_log_left_out_password();

}  // namespace kelm
