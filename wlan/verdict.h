// SPDX-License-Identifier: ISC
// How a band's attempt has ended.
#pragma once

#include <cstdint>

namespace kelm {

// Returns whether the band's attempt succeeded, and notes the answer for get_band_worker_succeed.
// report: also logs it and writes the lines of the system log. A bad band is logged, and false.
bool kelm_is_worker_succeed(int band, bool report);

// What kelm_is_worker_succeed last answered for the band: 1 for success, else 0. The exit path goes
// by it. The first function ignores a band outside 0 to 3, and the second returns 0 for it.
void set_band_worker_succeed(int band, int32_t value);
int32_t get_band_worker_succeed(int band);

}  // namespace kelm
