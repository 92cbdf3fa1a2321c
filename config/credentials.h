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

// Each merges its keys into the object that the file holds and rewrites the file as one line. A
// band outside 0 to 3 or a null record does nothing. A file that cannot be opened keeps what it
// had.
//
// The names are crossed: the functions with the underscore write the plain files, those without it
// the files with the underscore, which the EasyMesh scripts read.
void _wps_set_sta_config(int band, const wps_sta_band_config *config);  // WPS_STA_FILE
void wps_set_sta_config(int band, const wps_sta_band_config *config);   // WPS_STA_FILE_MESH
void _wps_set_ap_config(int band, const wps_ap_band_config *config);    // WPS_AP_FILE
void _wps_set_ext_config(int band, const wps_ap_band_config *config);   // WPS_AP_FILE
void wps_set_ext_config(int band, const wps_ap_band_config *config);    // WPS_AP_FILE_MESH

void _wps_set_ext_common_config(int on);  // "smart_setting_5g" in WPS_AP_FILE
void _wps_set_mesh_config(int on);        // "mesh_enable" in WPS_STA_FILE

// Writes the backhaul SSID and key of bands 0 and 1 as a new object to WPS_AP_BH_FILE. bands: four.
int wps_set_dual_ap_bh_config(const wps_ap_band_config *bands);

}  // namespace kelm
