// SPDX-License-Identifier: ISC
// Which stations have their link before an attempt.
#pragma once

namespace kelm {

// Records in the band's flags whether its station has a link now. Returns 0, or -1 for a bad band
// or when the band's runtime file is missing or no JSON.
int kelm_backup_sta_connected(int band);

}  // namespace kelm
