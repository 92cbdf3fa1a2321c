// SPDX-License-Identifier: ISC
// The file in which hostapd keeps an access point's settings.
#pragma once

#include <cstddef>

#include "config/band_config.h"
#include "config/conf_tree.h"
#include "core/kelm.h"

namespace kelm {

constexpr size_t HOSTAPD_PATH_SIZE = 128;

void rtk_hostapd_path(const kelm_session &session, char (&path)[HOSTAPD_PATH_SIZE]);

// Takes the first network of a file that kelm_parse_hostapd_config has read: its security and its
// key, and also its name if the record's access point is switched on. False when the network is
// secured but has no key for everybody. No record can say that: it would read as an open network.
// quiet: without a log line.
bool rtk_take_hostapd_network(const hapd_wpasupp_cfgitem *first, wps_ap_band_config *ap,
                              bool quiet = false);

}  // namespace kelm
