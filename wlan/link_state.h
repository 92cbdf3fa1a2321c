// SPDX-License-Identifier: ISC
// Which stations have a link before an attempt.
#pragma once

namespace kelm {

// Notes in the band's flags whether its station has a link now, and logs it at level 4. Returns 0.
// Returns -1 for a bad band, or (logged at level 7) when the band's runtime file is missing or no
// JSON.
int kelm_backup_sta_connected(int band);

}  // namespace kelm
