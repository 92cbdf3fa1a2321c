// SPDX-License-Identifier: ISC
// What a band's attempt came to.
#pragma once

#include <cstdint>

namespace kelm {

// Whether the band's attempt succeeded; notes it for get_band_worker_succeed. With report also logs
// it and writes the lines of the system log.
bool kelm_is_worker_succeed(int band, bool report);

// 1 when the band's attempt had succeeded when kelm_is_worker_succeed was asked last; the exit path
// goes by it. A band outside 0 to 3 is ignored and reads 0.
void set_band_worker_succeed(int band, int32_t value);
int32_t get_band_worker_succeed(int band);

}  // namespace kelm
