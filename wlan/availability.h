// SPDX-License-Identifier: ISC
// Which interfaces the settings let take part in WPS.
#pragma once

namespace kelm {

// Sets the enable flags of all sessions from "/tmp/wps.conf" and "/tmp/wifi.conf". Returns 0, or -1
// in an unknown run mode.
int kelm_check_available_status();

}  // namespace kelm
