// SPDX-License-Identifier: ISC
// What a station's attempt brought, taken from wpa_supplicant's configuration file.
#pragma once

#include "config/conf_tree.h"
#include "core/kelm.h"

namespace kelm {

constexpr size_t SUPPLICANT_PATH_SIZE = 128;

// The file in which wpa_supplicant keeps the networks of the session's station.
void kelm_supplicant_path(const kelm_session &session, char (&path)[SUPPLICANT_PATH_SIZE]);

// The network block that an attempt has added: the first enabled one from the second "network" on,
// since the first is the configuration from before. Null when there is none. first: the tree's
// first item.
hapd_wpasupp_cfgitem *kelm_find_learnt_network(hapd_wpasupp_cfgitem *first);

// Fills the band's root access point record. Returns 0, or -1 (logged) with the record as it was
// when the file is missing or unbalanced or holds no learnt network.
int rtk_get_wps_credentials(int band, kelm_rootap_info *record);

}  // namespace kelm
