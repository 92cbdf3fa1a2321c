// SPDX-License-Identifier: ISC
// New settings of an access point on their way: hostapd tells of them first and writes its file
// then.
#pragma once

#include "config/band_config.h"

namespace kelm {

// How long hostapd may take from the event to its file.
constexpr int RTK_NEW_SETTINGS_LIMIT_MS = 2000;

// What the band's file holds now is no news when the next event comes.
void rtk_note_hostapd_file(int band);

// hostapd tells of new settings. payload: what its event has behind the name, their attributes as
// hexadecimal digits or nothing. Anything else is not waited for.
void rtk_note_new_settings(int band, const char *payload);

// Waits, RTK_NEW_SETTINGS_LIMIT_MS from the event on at most and no longer once the daemon is to
// end, until the band's file is the one that the last event announced. False when it did not come,
// or has come before already, and was to have a key: what stands there then, where it is open, must
// not be written.
bool rtk_wait_for_new_settings(int band);

// What a write-back has stored for the band.
void rtk_note_stored_settings(int band, const wps_ap_band_config &stored);

// Whether the band's file holds another name or key now than what was stored after the last event.
bool rtk_has_newer_settings(int band);

// Nothing is announced or stored, and what the band's file holds is no news.
void rtk_forget_new_settings(int band);

}  // namespace kelm
