// SPDX-License-Identifier: ISC
// The table of the four sessions, one for each band; the flag words; the file "/tmp/wpsactive".
#pragma once

#include "core/kelm.h"

namespace kelm {

// Makes the sessions for a band-set code (0: 2g, 1: 5g, 2: both, 3: and 5g2, 4: 2g 5g 6g, 5: all).
// A second call makes a new table in place of the old one, and adds its bands to the band mask.
// Returns 0, or -1 without memory.
int kelm_create_session(int band_set);

// The band's record, or null for a band outside 0 to 3 (or before the table exists). Logs nothing.
kelm_session *kelm_get_wps_session(int band);

// The band of a record of the table, or KELM_BAND_NONE for any other pointer.
int kelm_get_bandtype_by_session(const kelm_session *session);

// Whether the device has the band. No number is refused: the band is taken modulo 4.
int kelm_get_band_inited(int band);

uint32_t kelm_get_global_wpsflag_bit(uint32_t mask);
uint32_t kelm_set_global_wpsflag_bit(uint32_t mask);    // returns the new word
uint32_t kelm_clean_global_wpsflag_bit(uint32_t mask);  // returns the new word

// Per-band accessors. For a bad band they log "Bad wps session[band %d].\n" at level 4, change
// nothing and return 0.
uint32_t kelm_get_wps_flags(int band);
void kelm_reset_wps_flags(int band);
bool kelm_has_wps_flag(int band, uint32_t mask);  // any bit of the mask
void kelm_set_wps_flag_bit(int band, uint32_t mask);
void kelm_clean_wps_flag_bit(int band, uint32_t mask);
void kelm_set_status(int band, int status);
int kelm_get_status(int band);

// 0 while the band's worker is launched and has not ended. Otherwise 1, for a bad band too.
int kelm_is_worker_done(int band);
void kelm_set_worker_done(int band);

// Marks the launched workers of all bands as done.
void kelm_mark_launched_done();

// The succeeded band with the highest priority; of two with the same priority the lower band;
// KELM_BAND_NONE if none has succeeded. exclude: a band that does not count. 0 means that all
// count, so band 0 can never be excluded; so does 4 and any higher number.
int kelm_get_succeed_band(int exclude);

// Writes "%d\n" to "/tmp/wpsactive": 1 while a push-button attempt runs, 0 after an attempt of a
// repeater.
void kelm_set_wps_alive(int value);

void kelm_count_credentials();

// Before an attempt: forgets what an earlier attempt left on the bands of the device, or what came
// while none ran. Else it would count for the new attempt. Forgotten are the statuses, the flags of
// the attempt, the enrollee and the root access point. Kept are
// - the flags that come from the settings;
// - CONFIG_WIFI: settings that were stored still need the restart of the wireless;
// - with keep_silence, status 12.
void kelm_forget_attempt(bool keep_silence);

// Clears the statuses and flags of all bands, the global flag word and the credential count.
void kelm_clean_wksp();

// Asks the main loop to end and the exit path to restart the wireless.
void kelm_restart_wireless();

// Log the sessions, or one root access point record; at level 4. valid: the session's rootap_valid,
// which stands in these lines and decides nothing; null for a record outside a session.
void dump_wps_session();
void dump_rootap_info(const kelm_rootap_info *rootap, const uint32_t *valid = nullptr);

}  // namespace kelm
