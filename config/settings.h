// SPDX-License-Identifier: ISC
// Reader of the flat settings files "/tmp/wps.conf" and "/tmp/wifi.conf".
#pragma once

#include "config/band_config.h"

namespace kelm {

constexpr const char *WPS_CONF_PATH = "/tmp/wps.conf";
constexpr const char *WIFI_CONF_PATH = "/tmp/wifi.conf";

// What a parse fills, and from which blocks of the file. An empty line begins a new block.
enum wps_config_info_type : int {
    WPS_CONFIG_GLOBAL = 0,  // one wps_config_info, from every line
    WPS_CONFIG_AP = 1,      // wps_ap_band_config[4], from the second of each five blocks
    WPS_CONFIG_STA = 2,     // wps_sta_band_config[4], from the third of each five blocks
};

// Parses one file into record, which the caller has set to zero. info_type: a wps_config_info_type.
// opened, if not null, tells whether the file could be opened. Returns 0. Returns -1
// - when the file cannot be opened (logged);
// - when the file ends right behind the "=" of a line;
// - when a handler fails.
// The lines before such a fault are in the record all the same.
int wps_parse_config(const char *path, void *record, int info_type, bool *opened = nullptr);

// Each handles one line. Returns 0 for any key, known or not; -1 (logged) when an argument is null.
int _read_wps_config(const char *key, const char *value, wps_config_info *record);
int _read_wifi_ap_config(const char *key, const char *value, wps_ap_band_config *bands);
int _read_wifi_sta_config(const char *key, const char *value, wps_sta_band_config *bands);

}  // namespace kelm
