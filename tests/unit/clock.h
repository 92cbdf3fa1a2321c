// SPDX-License-Identifier: ISC
// The clock of the function tests: time() as the daemon's code sees it.
#pragma once

#include <ctime>

namespace kelm_test {

// Stops the clock at a time; 0 lets it run with the machine's again.
void set_time(time_t now);
void advance_time(time_t seconds);

}  // namespace kelm_test
