// SPDX-License-Identifier: ISC
// What stands before an attempt: which bands take part, the access points' PIN, a fresh scan.
#pragma once

namespace kelm {

// Decides which bands take part, marks them started and announces the start on the bus. What an
// earlier attempt or an idle moment left is forgotten first (kelm_forget_attempt); an access
// point's silent bands stay silent. Returns 0, or -1 when nothing was started: the wireless is
// starting or the run mode is unknown (nothing is touched), a link state is unreadable.
int kelm_check_wlan_status();

// Access-point mode only: gives each band's access point its PIN from "/tmp/wps.conf" or takes it
// away, and notes the open ones.
void start_background_wps();

// Runs "/usr/bin/wifi scan" for the band and notes that in its flags.
void trigger_over_scan(int band);

}  // namespace kelm
