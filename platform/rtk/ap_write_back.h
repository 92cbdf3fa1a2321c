// SPDX-License-Identifier: ISC
// Write-back by run mode, and the access point's: settings that came into hostapd go into the
// device's.
#pragma once

#include "core/kelm.h"

namespace kelm {

// Chooses by run mode: EasyMesh, repeater or access point. 0, or -1 when the band's credentials
// were not written.
int rtk_patching_back(int ap_band, int sta_band, const kelm_rootap_info *record);

// Writes what hostapd's file of the band holds into the access point's credential file. 0, or -1
// (logged).
int rtk_ap_patching_back(int band);

}  // namespace kelm
