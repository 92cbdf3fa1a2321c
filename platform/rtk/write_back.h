// SPDX-License-Identifier: ISC
// Repeater write-back: what a station has learnt becomes the settings of the device's own bands.
#pragma once

#include "config/band_config.h"
#include "core/kelm.h"

namespace kelm {

// Writes the credentials of sta_band's station as station and access point settings of ap_band.
// record: the root access point to mirror, or null for the station's own result. Returns 0, or -1
// when the credentials were not written: a failure (logged), or the settings switch the band's
// station and access point off. The function with the underscore writes the files of the EasyMesh
// scripts, the other one writes the plain files.
int rtk_repeater_patching_back(int ap_band, int sta_band, const kelm_rootap_info *record);
int _rtk_repeater_patching_back(int ap_band, int sta_band, const kelm_rootap_info *record);

// The network block that an attempt has added, in the numbers of the settings.
struct learnt_network {
    char ssid[WPS_SSID_SIZE];
    char password[WPS_PASSWORD_SIZE];
    uint32_t security;     // WPS_AUTH_*
    uint32_t wpa_version;  // WPS_VERSION_*
    uint32_t encryption;   // WPS_CIPHER_*
    uint32_t wep_auth_type;
    uint32_t wep_key_format;
    uint32_t key_index;
    char data[WPS_QM_DATA_SIZE];
    uint8_t support_mesh;
    uint8_t multiap;
};

// All that is needed to decide a write-back.
struct write_back_case {
    int ap_band;   // 0 to 3
    int sta_band;  // 0 to 3
    bool station_succeeded;
    bool no_postfix;                 // SSIDs are taken as they are
    const kelm_rootap_info *record;  // to mirror, or null
    const kelm_rootap_info *joined;  // what sta_band's session knows of its root access point
    learnt_network network;
};

// Makes the decision, without any input or output of its own. Fills the two records of ap_band.
// Only the switches in them stay as they are.
void rtk_decide_write_back(const write_back_case &given, wps_sta_band_config *sta,
                           wps_ap_band_config *ap);

}  // namespace kelm
