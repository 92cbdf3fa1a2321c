// SPDX-License-Identifier: ISC
// Which bands the device has.
#pragma once

#include <cstdint>

namespace kelm {

// Reads the band-set code from "/tmp/device.info". Without an integer "RFBand", *code stays as it
// is. Returns 0. Returns -1 (logged) without memory, or when the file cannot be opened for reading
// and writing, read or parsed.
int kelm_get_RFBand(int32_t *code);

}  // namespace kelm
