// SPDX-License-Identifier: ISC
// The events of hostapd and wpa_supplicant: their connections, and what each event does to a band.
#pragma once

#include "core/kelm.h"

namespace kelm {

// Opens the band's attached connection, closing an old one. Returns its descriptor, or -1 (logged).
int rtk_wpas_sock_init(int band);
void rtk_wpas_sock_deinit(int band, int fd);

// One event text, terminated; it may be changed. Only the Wi-Fi daemon's own words count, never a
// name that the line quotes. 0: handled or ignored on purpose; -1: unknown, or a bad band.
int rtk_process_wpas_msg(int band, char *text, int length);

// Fills the record from the " bssid=", " uuid=" and " ssid=" fields of an event. The name is what
// is left of the line behind its field; what is absent, or stands behind the name, stays as it was.
void _store_rootap_info(const char *text, kelm_rootap_info *rootap);

// The second and the third blank-separated token of an event, which is cut up in place; null when
// there is none.
char *rtk_wps_GetEnrolleeMac(char *text);
char *rtk_wps_GetEnrolleeUuid(char *text);

// Address text of the band's enrollee, "" unless it is at least as long as an address.
const char *rtk_get_sta_mac(int band);

}  // namespace kelm
