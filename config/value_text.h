// SPDX-License-Identifier: ISC
// The forms in which hostapd and wpa_supplicant write down bytes that may be no plain text.
#pragma once

#include <cstddef>

#include "config/conf_tree.h"
#include "core/kelm.h"

namespace kelm {

// The bytes that a value stands for: those between double quotes, those of P"..." with its escapes,
// or those that an even number of hexadecimal digits spells. Any other text, which both daemons
// refuse, stands for itself. out is terminated; returns the number of bytes, which may hold zeros.
// size: strlen(value) + 1 always does, and what does not fit is cut.
size_t kelm_decode_value(const char *value, char *out, size_t size);

// The same for the value of a parsed line, whose quotes are off already.
size_t kelm_decode_item(const hapd_wpasupp_cfgitem &item, char *out, size_t size);

// The SSID that a parsed line or such a value names.
void kelm_decode_ssid(const hapd_wpasupp_cfgitem &item, char (&ssid)[WPS_SSID_SIZE]);
void kelm_decode_ssid(const char *value, char (&ssid)[WPS_SSID_SIZE]);

// The password of a "sae_password" line. One with a zero byte, which no field can hold, stays as it
// is written; one that is too long is left out, with a log line: a cut one would let nobody in.
void kelm_take_sae_password(const hapd_wpasupp_cfgitem &item, char (&password)[WPS_PASSWORD_SIZE]);
void kelm_take_sae_password(const char *value, char (&password)[WPS_PASSWORD_SIZE]);

// The line that tells it.
void kelm_log_left_out_password();

}  // namespace kelm
