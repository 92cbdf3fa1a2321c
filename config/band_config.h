// SPDX-License-Identifier: ISC
// Records for the settings: the WPS switches, and for each band the configuration of the access
// point and of the station.
#pragma once

#include <cstdint>

#include "core/kelm.h"

namespace kelm {

// These numbers stand in the credential files, and the configuration scripts read them. Do not
// renumber.
constexpr uint32_t WPS_AUTH_OPEN = 0;
constexpr uint32_t WPS_AUTH_WPA = 1;  // WPA personal family, see wpa_version
constexpr uint32_t WPS_AUTH_WEP = 2;
constexpr uint32_t WPS_AUTH_WPA_SINGLE = 3;
constexpr uint32_t WPS_AUTH_SAE = 4;
constexpr uint32_t WPS_AUTH_OWE = 5;

constexpr uint32_t WPS_VERSION_MIXED = 0;
constexpr uint32_t WPS_VERSION_WPA = 1;
constexpr uint32_t WPS_VERSION_WPA2 = 2;
constexpr uint32_t WPS_VERSION_WPA3 = 3;  // with WPS_AUTH_SAE: SAE only

constexpr uint32_t WPS_CIPHER_AUTO = 0;
constexpr uint32_t WPS_CIPHER_TKIP = 1;
constexpr uint32_t WPS_CIPHER_AES = 2;

// From "/tmp/wps.conf".
struct wps_config_info {
    uint8_t enabled;
    uint8_t ap_wps_available;   // band mask
    uint8_t sta_wps_available;  // band mask
    uint8_t pin_enabled;
    char pin_code[WPS_PIN_LEN];  // a PIN of eight digits has no terminator
};
static_assert(sizeof(wps_config_info) == 12, "callers clear twelve bytes");

// One band's access point.
struct wps_ap_band_config {
    uint8_t configured;  // the access-point write-back sets it to 1 before it writes the record
    char ssid[WPS_SSID_SIZE];
    uint32_t sec_type;  // WPS_AUTH_*
    uint32_t wpa_version;
    uint32_t encryption;
    uint32_t wep_auth_type;
    uint32_t wep_key_format;
    uint32_t key_index;
    char password[WPS_PASSWORD_SIZE];
    uint8_t ap_bss_enabled;
    uint8_t hide;
};

// One band's station.
struct wps_sta_band_config {
    uint8_t bssid[WPS_BSSID_LEN];  // all zero: unknown
    char ssid[WPS_SSID_SIZE];
    uint32_t auth_mode;  // WPS_AUTH_*
    uint32_t wpa_version;
    uint32_t encryption;
    uint32_t wep_auth_type;
    uint32_t wep_key_format;
    uint32_t key_index;
    char password[WPS_PASSWORD_SIZE];
    uint8_t sta_bss_enabled;
    char data[WPS_QM_DATA_SIZE];
    uint8_t support_mesh;
    uint8_t multiap;
};

}  // namespace kelm
