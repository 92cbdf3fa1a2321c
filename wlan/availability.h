// SPDX-License-Identifier: ISC
// Which interfaces may take part in WPS, as the settings say.
#pragma once

namespace kelm {

// Sets the enable flags of all sessions by "/tmp/wps.conf" and "/tmp/wifi.conf". Logs the settings,
// PIN included, at level 4. Returns 0, or -1 (logged) in an unknown run mode.
int kelm_check_available_status();

}  // namespace kelm
