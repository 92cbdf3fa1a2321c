// SPDX-License-Identifier: ISC
// Writers of the JSON credential files. The configuration scripts read these files after the
// attempt.
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

// Each of these functions merges its keys into the object that the file holds, and writes the file
// again as one line. It runs touch and, but for _wps_set_mesh_config, logs the new text at level 7.
// Returns 0 when the file holds the keys. Returns -1, with the file as it was,
// - for a band outside 0 to 3 or a null record (not logged);
// - when there is no memory, or no room on the disk (logged);
// - when the file cannot be written (logged).
//
// The names are crossed. The functions with an underscore in front write the plain files. Those
// without it write the files with an underscore, which the EasyMesh scripts read.
int _wps_set_sta_config(int band, const wps_sta_band_config *config);  // WPS_STA_FILE
int wps_set_sta_config(int band, const wps_sta_band_config *config);   // WPS_STA_FILE_MESH
int _wps_set_ap_config(int band, const wps_ap_band_config *config);    // WPS_AP_FILE
int _wps_set_ext_config(int band, const wps_ap_band_config *config);   // WPS_AP_FILE
int wps_set_ext_config(int band, const wps_ap_band_config *config);    // WPS_AP_FILE_MESH

int _wps_set_ext_common_config(int on);  // "smart_setting_5g" in WPS_AP_FILE
int _wps_set_mesh_config(int on);        // "mesh_enable" in WPS_STA_FILE

// Writes the backhaul SSID and key of bands 0 and 1 as a new object to WPS_AP_BH_FILE. bands: an
// array of four. Logs the object at level 4. Returns 0, or -1 with the file as it was.
int wps_set_dual_ap_bh_config(const wps_ap_band_config *bands);

// Call these right before the script that applies the files. Without them anybody could put a file
// where the daemon has written none, and the script would apply it. Each name without a file of a
// trusted user gets an empty file of our own. That file stays, for the scripts that follow. False,
// with one log line, when a name could not be held: the script must not be run then.
bool kelm_hold_credential_names();       // for "config_wifi": the plain files and their backups
bool kelm_hold_mesh_credential_names();  // for "mesh_config_wifi": the other files

}  // namespace kelm
