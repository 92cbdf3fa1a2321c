// SPDX-License-Identifier: ISC
// EasyMesh: whether the root access point supports it, and the write-back of the backhaul's SSID
// and key.
#pragma once

namespace kelm {

// Returns 0 when the station file of band 0 or band 1 says that its root access point supports
// EasyMesh, else -1. Sets the mark of a band (set_band_easymesh_wps) whose file says yes or no. Any
// other band keeps its mark.
int rtk_repeater_check_ap_easymesh_support();

// Writes the backhaul file from the stations' files and runs mesh_config_wifi. Returns 0, or -1
// when nothing was written: a bad band, a file is missing, the other band has not succeeded, or
// there is no room.
int rtk_repeater_easymesh_patching_back(int band, int sta_band);

}  // namespace kelm
