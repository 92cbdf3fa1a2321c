// SPDX-License-Identifier: ISC
// What an attempt needs first: which bands take part, the access points' PIN, a fresh scan.
#pragma once

namespace kelm {

// Decides which bands take part, marks them as started and announces the start on the bus. Before
// that it forgets what an earlier attempt left, or what came while none ran (kelm_forget_attempt).
// On an access point, bands that are silent stay silent. Returns 0, or -1 (logged) when nothing was
// started:
// - the wireless is starting, or the run mode is unknown; then nothing has changed;
// - the link of a station cannot be read.
int kelm_check_wlan_status();

// Works in access-point mode only. Gives each band's access point its PIN from "/tmp/wps.conf", or
// takes it away, and notes which access points are open. Logs the settings, PIN included, at level
// 4.
void start_background_wps();

// Runs "/usr/bin/wifi scan" for the band and notes in the band's flags that it did. A bad band is
// logged and ignored.
void trigger_over_scan(int band);

}  // namespace kelm
