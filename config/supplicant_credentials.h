// SPDX-License-Identifier: ISC
// Takes what a station has learnt in an attempt from wpa_supplicant's configuration file.
#pragma once

#include "config/conf_tree.h"
#include "core/kelm.h"

namespace kelm {

constexpr size_t SUPPLICANT_PATH_SIZE = 128;

// Sets path to the file in which wpa_supplicant keeps the networks of the session's station.
void kelm_supplicant_path(const kelm_session &session, char (&path)[SUPPLICANT_PATH_SIZE]);

// Returns the network block that an attempt has added, or null when there is none. The first
// "network" is the configuration from before the attempt, so the search begins with the second. It
// takes the first one that is not disabled. first: the tree's first item.
hapd_wpasupp_cfgitem *kelm_find_learnt_network(hapd_wpasupp_cfgitem *first);

// Fills the band's root access point record. Logs the record at level 4, and the learnt network
// with its passphrase at level 7. Returns 0. Returns -1 (logged), with the record as it was,
// - for a bad band;
// - when the file cannot be opened, or its braces do not match;
// - when it holds no learnt network.
int rtk_get_wps_credentials(int band, kelm_rootap_info *record);

}  // namespace kelm
