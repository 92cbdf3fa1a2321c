// SPDX-License-Identifier: ISC
// The write-back for each run mode. That of the access point takes the settings which came into
// hostapd and stores them as the device's own.
#pragma once

#include "core/kelm.h"

namespace kelm {

// The run mode decides which write-back runs: that of the access point, or that of the repeater,
// with or without EasyMesh. Returns 0, or -1 when the band's credentials were not written.
int rtk_patching_back(int ap_band, int sta_band, const kelm_rootap_info *record);

// Reads hostapd's file of the band and writes its settings into the access point's credential file.
// Returns 0, or -1 (logged).
int rtk_ap_patching_back(int band);

}  // namespace kelm
