// SPDX-License-Identifier: ISC
// What stands before an attempt: which bands take part, the access points' PIN, a fresh scan.
#pragma once

namespace kelm {

// Decides which bands take part, marks them started and announces the start on the bus. Returns 0,
// or -1 when nothing was started: the wireless is starting, a link state is unreadable, unknown run
// mode.
int kelm_check_wlan_status();

// Access-point mode only: gives each band's access point its PIN from "/tmp/wps.conf" or takes it
// away, and notes the open ones.
void start_background_wps();

// Runs "/usr/bin/wifi scan" for the band and notes that in its flags.
void trigger_over_scan(int band);

}  // namespace kelm
