// SPDX-License-Identifier: ISC
// Finds, for the bands that failed, the root access point that the succeeded band has joined.
#pragma once

#include <cstddef>
#include <cstdint>

#include <json-c/json.h>

#include "config/band_config.h"
#include "core/kelm.h"

namespace kelm {

// How near two 6-byte addresses are: 0 unrelated, 1 the same or next to each other, more: further
// apart.
int32_t wps_bssid_co_hosted_check(const uint8_t *a, const uint8_t *b);

// Fills rec from one entry of a scan result and the 6-byte address, then dumps it. Keys that are
// missing or of another type leave their field alone.
void kelm_store_apinfo_from_json(json_object *entry, kelm_rootap_info *rec, const uint8_t *bssid);

// Looks in a band's scan result for the root access point of the succeeded session, by SSID and by
// address. Fetches the list up to six times, a second apart. Returns 1 with wps's record filled,
// else 0.
int kelm_match_rootap(const char *path, const kelm_session *suc_wps, kelm_session *wps);

// Whether both bands' records name one device: same UUID, SSIDs known, addresses near.
int check_rootapinfo_with_uuid(int suc_band, int band);

// kelm_match_rootap on the band's own scan result.
int check_rootapinfo_from_scantable(int suc_band, int band);

// After the workers: completes the root access point records and sets WPS_FLAG_CONFIG_MIRROR on the
// bands that may take the succeeded band's credentials. Returns 0; -1 while workers run or when
// none succeeded; 2 when neither 0 nor 2 of the bands 0 to 2 had a link before.
int kelm_resolve_apinfo_and_credential();

// A root access point message from a monitor. 0, or -1 when the platform knows no such message.
int _kelm_worker_process_rootapinfo(const char *message, size_t length);

// Fills rec from a station configuration.
void kelm_store_apinfo_from_cfg(const wps_sta_band_config *cfg, kelm_rootap_info *rec);

}  // namespace kelm
