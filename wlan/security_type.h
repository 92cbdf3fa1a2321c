// SPDX-License-Identifier: ISC
// Whether an access point is open.
#pragma once

#include <cstdint>

namespace kelm {

// Security type of the band's access point, read afresh from "/tmp/wifi.conf"; a missing file reads
// as open. 0, or -1 for a bad band.
int _read_ap_secType(int band, uint32_t *sec_type);
bool _is_none_sec(uint32_t sec_type);

}  // namespace kelm
