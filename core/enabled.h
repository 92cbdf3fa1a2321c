// SPDX-License-Identifier: ISC
// What a band's flags tell: which interfaces are enabled, and whether the station had a link. For a
// bad band each function returns 0.
#pragma once

namespace kelm {

int kelm_get_bss_enabled(int band);    // 0 or 1: the station interface
int kelm_get_radio_enabled(int band);  // 0 or 2: the access point
int kelm_get_iface_enabled(int band);  // non-zero: the one that the run mode uses
int kelm_get_sta_connected(int band);  // 0 or 8

}  // namespace kelm
