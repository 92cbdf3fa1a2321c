// SPDX-License-Identifier: ISC
// The events of hostapd and wpa_supplicant: their connections, and what each event does to a band.
#pragma once

#include "core/kelm.h"

namespace kelm {

// Opens the band's attached connection. An old one is closed first. Returns the descriptor, or -1
// (logged).
int rtk_wpas_sock_init(int band);
void rtk_wpas_sock_deinit(int band, int fd);

// Handles one event text. It is terminated and may be changed. Only the Wi-Fi daemon's own words
// count, never a name that the line quotes. Returns 0 when the event was handled, or ignored on
// purpose; -1 when it is unknown, or the band is bad.
int rtk_process_wpas_msg(int band, char *text, int length);

// Fills the record from the " bssid=", " uuid=" and " ssid=" fields of an event. The name runs from
// " ssid=" to the end of the line. A field that is absent changes nothing in the record. Nor does
// one that stands behind the name.
void _store_rootap_info(const char *text, kelm_rootap_info *rootap);

// Return the second and the third word of an event, or null when there is none. Words are separated
// by blanks. The text is cut up in place.
char *rtk_wps_GetEnrolleeMac(char *text);
char *rtk_wps_GetEnrolleeUuid(char *text);

// The address of the band's enrollee as text; "" when the text is shorter than an address.
const char *rtk_get_sta_mac(int band);

}  // namespace kelm
