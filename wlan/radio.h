// SPDX-License-Identifier: ISC
// Radio and device information: the device's bands, what is enabled on them, what their attempts
// came to.
#pragma once

#include <cstdint>

#include "core/kelm.h"

namespace kelm {

// 1 when the band's last attempt succeeded; written by kelm_is_worker_succeed, read by the exit
// path.
extern int32_t band_worker_succeed[KELM_BAND_COUNT];

// Reads the band-set code from "/tmp/device.info". Without an integer "RFBand" *code stays as it
// is. Returns 0, or -1 (logged) when the file cannot be opened for writing too, read or parsed.
int kelm_get_RFBand(int32_t *code);

// Sets the enable flags of all sessions from "/tmp/wps.conf" and "/tmp/wifi.conf". Returns 0, or -1
// in an unknown run mode.
int kelm_check_available_status();

// Records in the band's flags whether its station has a link now. Returns 0, or -1 for a bad band
// or when the band's runtime file is missing or no JSON.
int kelm_backup_sta_connected(int band);

int kelm_get_bss_enabled(int band);    // 0 or 1: the station interface
int kelm_get_radio_enabled(int band);  // 0 or 2: the access point
int kelm_get_iface_enabled(int band);  // non-zero: the one that the run mode uses
int kelm_get_sta_connected(int band);  // 0 or 8

// Whether the band's root access point speaks EasyMesh. A band outside 0 to 3 is ignored and reads
// 0.
void set_band_easymesh_wps(int band, uint32_t value);
uint32_t get_band_easymesh_wps(int band);
void reset_band_easymesh_wps();

// Security type of the band's access point, read afresh from "/tmp/wifi.conf"; a missing file reads
// as open. 0, or -1 for a bad band.
int _read_ap_secType(int band, uint32_t *sec_type);
bool _is_none_sec(uint32_t sec_type);

// Whether the band's attempt succeeded; notes it in band_worker_succeed. With report also logs it
// and writes the lines of the system log.
bool kelm_is_worker_succeed(int band, bool report);

}  // namespace kelm
