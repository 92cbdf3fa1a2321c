// SPDX-License-Identifier: ISC
// Writers of the JSON credential files, which the configuration scripts pick up after the attempt.
#pragma once

#include "config/band_config.h"

namespace kelm {

constexpr const char *WPS_STA_FILE = "/tmp/wps_wifi_sta.txt";
constexpr const char *WPS_AP_FILE = "/tmp/wps_wifi_ap.txt";
constexpr const char *WPS_STA_FILE_MESH = "/tmp/_wps_wifi_sta.txt";
constexpr const char *WPS_AP_FILE_MESH = "/tmp/_wps_wifi_ap.txt";
constexpr const char *WPS_AP_BH_FILE = "/tmp/wps_wifi_ap_bh.txt";
constexpr const char *WPS_AP_BACKUP = "/tmp/wps_wifi_ap.bak";
constexpr const char *WPS_STA_BACKUP = "/tmp/wps_wifi_sta.bak";

// Each merges its keys into the object that the file holds and rewrites the file as one line.
// Returns 0 when the file holds the keys now, -1 when it keeps what it had: for a band outside 0 to
// 3 or a null record, without memory or room, where the file cannot be opened.
//
// The names are crossed: the functions with the underscore write the plain files, those without it
// the files with the underscore, which the EasyMesh scripts read.
int _wps_set_sta_config(int band, const wps_sta_band_config *config);  // WPS_STA_FILE
int wps_set_sta_config(int band, const wps_sta_band_config *config);   // WPS_STA_FILE_MESH
int _wps_set_ap_config(int band, const wps_ap_band_config *config);    // WPS_AP_FILE
int _wps_set_ext_config(int band, const wps_ap_band_config *config);   // WPS_AP_FILE
int wps_set_ext_config(int band, const wps_ap_band_config *config);    // WPS_AP_FILE_MESH

int _wps_set_ext_common_config(int on);  // "smart_setting_5g" in WPS_AP_FILE
int _wps_set_mesh_config(int on);        // "mesh_enable" in WPS_STA_FILE

// Writes the backhaul SSID and key of bands 0 and 1 as a new object to WPS_AP_BH_FILE. bands: four.
// Returns 0, or -1 with the file as it was.
int wps_set_dual_ap_bh_config(const wps_ap_band_config *bands);

// To be called right before the script that applies the files: whoever put one where none was
// written would have it applied. Each name without a file of a trusted user's becomes an empty file
// of our own and stays one, for the scripts that follow. False, with one log line: a name could not
// be held, and the script must not be run.
bool kelm_hold_credential_names();       // for "config_wifi": the plain files and their backups
bool kelm_hold_mesh_credential_names();  // for "mesh_config_wifi": the others

}  // namespace kelm
