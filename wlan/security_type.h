// SPDX-License-Identifier: ISC
// Whether an access point is open.
#pragma once

#include <cstdint>

namespace kelm {

// Reads the security type of the band's access point (WPS_AUTH_*) from "/tmp/wifi.conf", each time
// anew. A missing file counts as open. Logs the type at level 7. Returns 0, or -1 (logged) for a
// bad band.
int _read_ap_secType(int band, uint32_t *sec_type);
bool _is_none_sec(uint32_t sec_type);

}  // namespace kelm
