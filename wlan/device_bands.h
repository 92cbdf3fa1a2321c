// SPDX-License-Identifier: ISC
// Which bands the device has.
#pragma once

#include <cstdint>

namespace kelm {

// Reads the band-set code from "/tmp/device.info". Without an integer "RFBand" *code stays as it
// is. Returns 0, or -1 (logged) when the file cannot be opened for writing too, read or parsed.
int kelm_get_RFBand(int32_t *code);

}  // namespace kelm
