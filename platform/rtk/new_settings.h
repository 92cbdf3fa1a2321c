// SPDX-License-Identifier: ISC
// New settings of an access point. hostapd first announces them by an event, and then writes its
// file.
#pragma once

#include "config/band_config.h"

namespace kelm {

// How long hostapd may take from the event to its file.
constexpr int RTK_NEW_SETTINGS_LIMIT_MS = 2000;

// Remembers the band's file as it is now. At the next event this content is not new.
void rtk_note_hostapd_file(int band);

// Notes that hostapd has announced new settings. payload: what its event has behind the name. That
// is the attributes of the settings as hexadecimal digits, or nothing. With any other payload no
// file is waited for.
void rtk_note_new_settings(int band, const char *payload);

// Waits until the band's file is the one that the last event announced. The wait ends
// RTK_NEW_SETTINGS_LIMIT_MS after the event, or earlier when the daemon is to end. False when a
// file with a key was announced, and it did not come or had come before already. What stands in
// the file then must not be written if it is an open network.
bool rtk_wait_for_new_settings(int band);

// Notes what a write-back has stored for the band.
void rtk_note_stored_settings(int band, const wps_ap_band_config &stored);

// Whether the band's file now holds another name or key than those that were stored after the last
// event.
bool rtk_has_newer_settings(int band);

// Forgets what was announced and what was stored. The band's file as it is now is not new.
void rtk_forget_new_settings(int band);

}  // namespace kelm
