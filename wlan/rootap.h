// SPDX-License-Identifier: ISC
// Finds the root access point that the succeeded band has joined, for the bands that failed.
#pragma once

#include <cstddef>
#include <cstdint>

#include <json-c/json.h>

#include "config/band_config.h"
#include "core/kelm.h"

namespace kelm {

// Returns how near two 6-byte addresses are. 0: unrelated. 1: the same, or next to each other.
// More: further apart. Logs the addresses at level 7.
int32_t wps_bssid_co_hosted_check(const uint8_t *a, const uint8_t *b);

// Fills rec from one entry of a scan result and from bssid, an address of 6 bytes. Then logs rec
// with dump_rootap_info. If a key is missing or its value is of another type, its field stays as it
// is.
void kelm_store_apinfo_from_json(json_object *entry, kelm_rootap_info *rec, const uint8_t *bssid);

// Searches the scan result of a band for the root access point of the succeeded session, by SSID
// and by address. path: the file of the scan result. wps: the session of the band. Fetches the list
// with "/usr/bin/wifi getscanresult", up to six times, with "sleep 1" between. Returns 1 with wps's
// record filled, else 0.
int kelm_match_rootap(const char *path, const kelm_session *suc_wps, kelm_session *wps);

// Returns 1 when the records of both bands name one device: the UUIDs are the same, SSIDs and
// addresses are known, and the addresses are near. Else 0.
int check_rootapinfo_with_uuid(int suc_band, int band);

// Calls kelm_match_rootap for band, on the band's own scan result. Returns the same, and 0 for a
// bad band (logged).
int check_rootapinfo_from_scantable(int suc_band, int band);

// Call this when all workers have ended. Completes the root access point records. Sets
// WPS_FLAG_CONFIG_MIRROR on the bands that may take the credentials of the succeeded band. Returns
// - 0 when that is done;
// - -1 while workers run, or when no band succeeded;
// - 2, with nothing done, when one or three of the bands 0 to 2 had a link before.
int kelm_resolve_apinfo_and_credential();

// Takes a root access point message from a monitor into the record of its band. message: length
// bytes. Returns 0, or -1 when the platform knows no such message or the band is bad.
int _kelm_worker_process_rootapinfo(const char *message, size_t length);

// Fills rec from a station configuration. An address, SSID or security that is unknown there leaves
// its field as it is.
void kelm_store_apinfo_from_cfg(const wps_sta_band_config *cfg, kelm_rootap_info *rec);

}  // namespace kelm
